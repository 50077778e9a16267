#include "table/function_table.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdio>
#include <utility>

#include "data/datum.h"

namespace mduckdb_host {

namespace {

// The positions that the module uses, checked by number so that a change of the record does not compile.
#define MDUCKDB_HOST_AT(name, position) \
    static_assert(offsetof(mirona_extension_api, name) == (position) * sizeof(void*), #name)
MDUCKDB_HOST_AT(register_procedure, 2);
MDUCKDB_HOST_AT(arg_count, 6);
MDUCKDB_HOST_AT(report_error, 10);
MDUCKDB_HOST_AT(create_table_cursor, 15);
MDUCKDB_HOST_AT(create_cursor, 17);
MDUCKDB_HOST_AT(make_blob_value, 20);
MDUCKDB_HOST_AT(make_text_value, 28);
MDUCKDB_HOST_AT(make_uint_value, 31);
MDUCKDB_HOST_AT(value_is_null, 33);
MDUCKDB_HOST_AT(value_int64, 42);
MDUCKDB_HOST_AT(value_text, 45);
#undef MDUCKDB_HOST_AT
static_assert(sizeof(mirona_extension_api) >= MIRONA_EXTENSION_API_POSITIONS * sizeof(void*));

// The functions of the table. They are `noexcept`, since the module must never receive an exception: if
// memory runs out inside one of them, the program terminates.

template <std::size_t Position>
void ReportUnused() noexcept {
    std::fprintf(stderr, "The module called position %zu of the function table, which is not used.\n",
                 Position);
}

template <std::size_t First, std::size_t Count>
void FillUnused(void (*(&positions)[Count])()) noexcept {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        ((positions[I] = &ReportUnused<First + I>), ...);
    }
    (std::make_index_sequence<Count>());
}

ProcedureCall& CallOf(mirona_call call) noexcept {
    return *static_cast<ProcedureCall*>(static_cast<ErrorTarget*>(call));
}

HostValue* ValueOf(mirona_value value) noexcept {
    return static_cast<HostValue*>(value);
}

uint32_t RegisterProcedure(mirona_host host, const mirona_procedure_def* def) noexcept {
    static_cast<ProcedureRegistry*>(static_cast<ErrorTarget*>(host))->Register(*def);
    return 0;
}

uint32_t ArgCount(mirona_call call) noexcept {
    return CallOf(call).get_ArgumentCount();
}

void ReportError(void* call_or_host, const char* text, uint64_t length) noexcept {
    static_cast<ErrorTarget*>(call_or_host)->ReportError({text, length});
}

uint32_t CreateTableCursor(mirona_call call, uint64_t columns, uint64_t rows, const char* const* names,
                           const mirona_value* values, mirona_cursor* out) noexcept {
    std::vector<Column> described(columns);
    std::vector<Row> contents(rows, Row(columns));
    for (uint64_t c = 0; c < columns; ++c) {
        described[c] = {names[c], 0, MIRONA_TYPE_TEXT};
        for (uint64_t r = rows; r-- > 0;) {
            if (HostValue* value = ValueOf(values[r * columns + c]); value != nullptr) {
                described[c].host_type = get_HostType(value->datum);
                contents[r][c] = std::move(value->datum);
            }
        }
    }
    *out = CallOf(call).AddCursor(MakeTableCursor(std::move(described), std::move(contents)));
    return 0;
}

uint32_t CreateCursor(mirona_call call, const mirona_cursor_def* def, mirona_cursor* out) noexcept {
    *out = CallOf(call).AddCursor(MakeCallbackCursor(CallOf(call), *def));
    return 0;
}

mirona_value MakeBlob(mirona_call call, const void* bytes, uint32_t length, uint32_t /*zero*/) noexcept {
    return CallOf(call).MakeValue({Bytes{std::string(static_cast<const char*>(bytes), length)}});
}

mirona_value MakeBool(mirona_call call, uint8_t value) noexcept {
    return CallOf(call).MakeValue({value != 0});
}

nbx::DateContent UnpackDate(uint32_t packed) noexcept {
    // The year is signed; shifting it down keeps the sign.
    return {static_cast<int32_t>(packed) >> 9, static_cast<uint8_t>(packed >> 5U & 15U),
            static_cast<uint8_t>(packed & 31U)};
}

nbx::TimeContent UnpackTime(uint32_t packed) noexcept {
    return {static_cast<uint8_t>(packed >> 27U & 31U), static_cast<uint8_t>(packed >> 21U & 63U),
            static_cast<uint8_t>(packed >> 15U & 63U), static_cast<uint16_t>(packed & 0x7FFFU)};
}

mirona_value MakeDate(mirona_call call, uint32_t packed) noexcept {
    return CallOf(call).MakeValue({UnpackDate(packed)});
}

mirona_value MakeDateTime(mirona_call call, uint64_t packed) noexcept {
    return CallOf(call).MakeValue({nbx::DateTimeContent{UnpackDate(static_cast<uint32_t>(packed >> 32U)),
                                                        UnpackTime(static_cast<uint32_t>(packed))}});
}

mirona_value MakeDouble(mirona_call call, double value) noexcept {
    return CallOf(call).MakeValue({value});
}
mirona_value MakeInt(mirona_call call, int64_t value) noexcept {
    return CallOf(call).MakeValue({value});
}

mirona_value MakeText(mirona_call call, const char* text, uint32_t length, uint32_t /*zero*/) noexcept {
    return CallOf(call).MakeValue({std::string(text, length)});
}

mirona_value MakeTime(mirona_call call, uint32_t packed) noexcept {
    return CallOf(call).MakeValue({UnpackTime(packed)});
}

mirona_value MakeUint(mirona_call call, uint64_t value) noexcept {
    return CallOf(call).MakeValue({value});
}

bool ValueIsNull(mirona_value value) noexcept {
    return value == nullptr || ValueOf(value)->datum.get_IsNull();
}

uint32_t ValueType(mirona_value value) noexcept {
    return value == nullptr ? uint32_t{MIRONA_TYPE_NULL} : get_HostType(ValueOf(value)->datum);
}

uint32_t ArrayLength(mirona_value value) noexcept {
    return value == nullptr ? 0 : static_cast<uint32_t>(ValueOf(value)->elements.size());
}

mirona_value ArrayElement(mirona_value value, uint64_t index) noexcept {
    return index < ArrayLength(value) ? &ValueOf(value)->elements[index] : nullptr;
}

template <class Number>
Number ValueNumber(mirona_value value) noexcept {
    if (value == nullptr) {
        return 0;
    }
    const Datum::Content& content = ValueOf(value)->datum.content;
    if (const auto* number = std::get_if<int64_t>(&content)) {
        return static_cast<Number>(*number);
    }
    if (const auto* number = std::get_if<uint64_t>(&content)) {
        return static_cast<Number>(*number);
    }
    return 0;
}

const char* ValueText(mirona_call /*call*/, mirona_value value, uint64_t* length) noexcept {
    *length = 0;
    if (ValueIsNull(value)) {
        return nullptr;
    }
    HostValue& host_value = *ValueOf(value);
    host_value.text = ToText(host_value.datum);
    *length = host_value.text.size();
    return host_value.text.c_str();
}

void FillAllUnused(mirona_extension_api& api) noexcept {
    FillUnused<0>(api.reserved_0_1);
    FillUnused<3>(api.reserved_3_5);
    FillUnused<7>(api.reserved_7_9);
    FillUnused<11>(api.reserved_11_14);
    FillUnused<16>(api.reserved_16);
    FillUnused<18>(api.reserved_18_19);
    FillUnused<26>(api.reserved_26_27);
    FillUnused<29>(api.reserved_29);
    FillUnused<32>(api.reserved_32);
    FillUnused<37>(api.reserved_37_41);
    FillUnused<43>(api.reserved_43);
}

mirona_extension_api MakeFunctionTable() noexcept {
    mirona_extension_api api{};
    FillAllUnused(api);
    api.register_procedure = &RegisterProcedure;
    api.arg_count = &ArgCount;
    api.report_error = &ReportError;
    api.create_table_cursor = &CreateTableCursor;
    api.create_cursor = &CreateCursor;
    api.make_blob_value = &MakeBlob;
    api.make_bool_value = &MakeBool;
    api.make_date_value = &MakeDate;
    api.make_datetime_value = &MakeDateTime;
    api.make_double_value = &MakeDouble;
    api.make_int_value = &MakeInt;
    api.make_text_value = &MakeText;
    api.make_time_value = &MakeTime;
    api.make_uint_value = &MakeUint;
    api.value_is_null = &ValueIsNull;
    api.value_type = &ValueType;
    api.array_length = &ArrayLength;
    api.array_element = &ArrayElement;
    api.value_int64 = &ValueNumber<int64_t>;
    api.value_uint64 = &ValueNumber<uint64_t>;
    api.value_text = &ValueText;
    return api;
}

}  // namespace

const Procedure* ProcedureRegistry::Find(std::string_view name) const noexcept {
    for (const Procedure& procedure : procedures_) {
        if (procedure.name == name) {
            return &procedure;
        }
    }
    return nullptr;
}

void ProcedureRegistry::Register(const mirona_procedure_def& def) {
    procedures_.push_back(
        {def.name, def.min_args, def.max_args, def.signature, def.description, def.handler});
}

void ProcedureRegistry::ReportError(std::string_view text) {
    errors_.emplace_back(text);
}

const mirona_extension_api& GetFunctionTable() noexcept {
    static const mirona_extension_api kTable = MakeFunctionTable();
    return kTable;
}

}  // namespace mduckdb_host
