#include "values/host_value_binding.h"

#include <array>
#include <exception>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/value_guard.h"
#include "values/variant.h"

namespace mduckdb {

using nbx::I_Value;

namespace {

constexpr const char* kValueName = "value";

ValueHolder ToDuckDB(I_Value* value, unsigned depth);

template <class Interface>
Interface* Query(I_Value& value, uint32_t interface_id) {
    return static_cast<Interface*>(value.QueryInterface(interface_id));
}

ValueHolder NullValue() {
    return ValueHolder(duckdb_create_null_value());
}

ValueHolder TextOf(I_Value& value, unsigned /*depth*/) {
    return MakeTextValue(ToUtf8(value.get_Text()));
}

ValueHolder BooleanOf(I_Value& value, unsigned /*depth*/) {
    return ValueHolder(duckdb_create_bool(value.get_Boolean()));
}

template <auto kCreate, class Number>
ValueHolder SignedOf(I_Value& value, unsigned /*depth*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_LLong())));
}

template <auto kCreate, class Number>
ValueHolder UnsignedOf(I_Value& value, unsigned /*depth*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_ULLong())));
}

template <auto kCreate, class Number>
ValueHolder FloatingOf(I_Value& value, unsigned /*depth*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_Double())));
}

ValueHolder DateOf(I_Value& value, unsigned depth) {
    const auto* date = Query<nbx::I_DateValue>(value, nbx::kDateInterfaceId);
    if (date == nullptr) {
        return TextOf(value, depth);
    }
    return ValueHolder(duckdb_create_date(duckdb_to_date(duckdb_date_struct{
        date->get_Year(), static_cast<int8_t>(date->get_Month()), static_cast<int8_t>(date->get_Day())})));
}

ValueHolder TimeOf(I_Value& value, unsigned depth) {
    const auto* time = Query<nbx::I_TimeValue>(value, nbx::kTimeInterfaceId);
    if (time == nullptr) {
        return TextOf(value, depth);
    }
    const int64_t seconds =
        (int64_t{time->get_Hours()} * 60 + time->get_Minutes()) * 60 + time->get_Seconds();
    const int64_t micros = (seconds * 1000 + time->get_Milliseconds()) * 1000;
    return IsValidTime(micros) ? ValueHolder(duckdb_create_time(duckdb_time{micros})) : ValueHolder();
}

ValueHolder DateTimeOf(I_Value& value, unsigned depth) {
    const auto* moment = Query<nbx::I_DateTimeValue>(value, nbx::kDateTimeInterfaceId);
    if (moment == nullptr) {
        return TextOf(value, depth);
    }
    duckdb_timestamp_struct parts{};
    parts.date.year = moment->get_Year();
    parts.date.month = static_cast<int8_t>(moment->get_Month());
    parts.date.day = static_cast<int8_t>(moment->get_Day());
    parts.time.hour = static_cast<int8_t>(moment->get_Hours());
    parts.time.min = static_cast<int8_t>(moment->get_Minutes());
    parts.time.sec = static_cast<int8_t>(moment->get_Seconds());
    parts.time.micros = int32_t{moment->get_Milliseconds()} * 1000;
    const int64_t micros = duckdb_to_timestamp(parts).micros;
    return ValueHolder(duckdb_create_timestamp_ms(duckdb_timestamp_ms{micros / 1000}));
}

[[noreturn]] void RefuseEnum() {
    ThrowValueError(kValueName, "Mirona enum values are not supported by DuckDB binding");
}

ValueHolder EnumOf(I_Value& /*value*/, unsigned /*depth*/) {
    RefuseEnum();
}

ValueHolder ReferenceOf(I_Value& value, unsigned depth) {
    const auto* reference = Query<nbx::I_ReferenceValue>(value, nbx::kReferenceInterfaceId);
    return reference != nullptr ? ToDuckDB(reference->get_Inner().get(), depth + 1) : NullValue();
}

ValueHolder ListOf(I_Value& value, unsigned depth);

/** How values of a host type code are read, and what DuckDB type they are as elements of an array. */
struct HostType {
    ValueHolder (*read)(I_Value& value, unsigned depth) = TextOf;
    duckdb_type element_type = DUCKDB_TYPE_VARCHAR;
};

constexpr std::size_t kHostTypeCount = 40;

constexpr std::array<HostType, kHostTypeCount> MakeHostTypes() {
    constexpr HostType kInt32{SignedOf<duckdb_create_int32, int32_t>, DUCKDB_TYPE_INTEGER};
    constexpr HostType kUint32{UnsignedOf<duckdb_create_uint32, uint32_t>, DUCKDB_TYPE_UINTEGER};
    constexpr HostType kDouble{FloatingOf<duckdb_create_double, double>, DUCKDB_TYPE_DOUBLE};
    constexpr HostType kBytes{TextOf, DUCKDB_TYPE_BLOB};
    constexpr HostType kEnum{EnumOf, DUCKDB_TYPE_INVALID};
    std::array<HostType, kHostTypeCount> types{};
    types[2] = {BooleanOf, DUCKDB_TYPE_BOOLEAN};
    types[3] = {UnsignedOf<duckdb_create_uint8, uint8_t>, DUCKDB_TYPE_UTINYINT};
    types[4] = {SignedOf<duckdb_create_int16, int16_t>, DUCKDB_TYPE_SMALLINT};
    types[5] = {UnsignedOf<duckdb_create_uint16, uint16_t>, DUCKDB_TYPE_USMALLINT};
    types[6] = types[8] = kInt32;
    types[7] = types[9] = kUint32;
    types[10] = {SignedOf<duckdb_create_int64, int64_t>, DUCKDB_TYPE_BIGINT};
    types[11] = {UnsignedOf<duckdb_create_uint64, uint64_t>, DUCKDB_TYPE_UBIGINT};
    types[12] = {FloatingOf<duckdb_create_float, float>, DUCKDB_TYPE_FLOAT};
    types[13] = types[14] = types[15] = kDouble;
    types[16] = {DateOf, DUCKDB_TYPE_DATE};
    types[17] = {TimeOf, DUCKDB_TYPE_TIME};
    types[18] = {DateTimeOf, DUCKDB_TYPE_TIMESTAMP_MS};
    types[21] = types[22] = types[23] = types[25] = kBytes;
    types[33] = types[34] = kEnum;
    types[38] = {ReferenceOf, DUCKDB_TYPE_VARCHAR};
    types[39] = {ListOf, DUCKDB_TYPE_VARCHAR};
    return types;
}

const HostType& HostTypeOf(uint32_t type_code) {
    static constexpr std::array<HostType, kHostTypeCount> kTypes = MakeHostTypes();
    static constexpr HostType kOther{};
    return type_code < kHostTypeCount ? kTypes[type_code] : kOther;
}

ValueHolder ListOf(I_Value& value, unsigned depth) {
    const auto* array = Query<nbx::I_ArrayValue>(value, nbx::kArrayInterfaceId);
    if (array == nullptr) {
        return NullValue();
    }
    const duckdb_type element_type = HostTypeOf(array->get_ElementTypeCode()).element_type;
    if (element_type == DUCKDB_TYPE_INVALID) {
        RefuseEnum();
    }
    const uint64_t count = array->get_Count();
    std::vector<ValueHolder> elements;
    // One more than needed: DuckDB takes no null pointer, not even for an empty list.
    std::vector<duckdb_value> handles(count + 1);
    elements.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        elements.push_back(ToDuckDB(array->get_Element(i).get(), depth + 1));
        if (!elements.back()) {
            return {};
        }
        handles[i] = elements.back().get();
    }
    return ValueHolder(duckdb_create_list_value(MakeType(element_type).get(), handles.data(), count));
}

ValueHolder BlobOf(const nbx::I_RawBytes& raw) {
    std::vector<uint8_t> bytes(raw.get_Length() + 1);
    const uint64_t length = bytes.size() - 1;
    raw.CopyTo(bytes.data(), length);
    return ValueHolder(duckdb_create_blob(bytes.data(), length));
}

ValueHolder ToDuckDB(I_Value* value, unsigned depth) {
    if (depth > kMaxHostValueDepth) {
        return {};
    }
    if (value == nullptr || value->get_IsNull()) {
        return NullValue();
    }
    if (const auto* raw = Query<nbx::I_RawBytes>(*value, nbx::kRawBytesInterfaceId)) {
        return BlobOf(*raw);
    }
    if (const auto* json = Query<nbx::I_JSONValue>(*value, nbx::kJSONInterfaceId)) {
        if (IsValueEnvelope(*json)) {
            return ReadValueEnvelope(*json);
        }
    }
    return HostTypeOf(value->get_TypeCode()).read(*value, depth);
}

}  // namespace

ValueHolder HostValueToDuckDB(I_Value* value) {
    try {
        return ToDuckDB(value, 0);
    } catch (const nbx::xException&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        // DuckDB throws through its C functions, at a date that there is not for example.
        ThrowValueError(kValueName, error.what());
    }
}

BindOutcome BindHostValue(duckdb_prepared_statement prepared, idx_t index, I_Value* value) {
    const ValueHolder made = HostValueToDuckDB(value);
    if (!made) {
        return BindOutcome::no_value;
    }
    return duckdb_bind_value(prepared, index, made.get()) == DuckDBSuccess ? BindOutcome::bound
                                                                           : BindOutcome::refused_by_duckdb;
}

void BindValueArray(duckdb_prepared_statement prepared, const nbx::ValueRow* values,
                    const nbx::String& database_path) {
    const std::size_t count = values != nullptr ? values->get_Count() : 0;
    for (std::size_t i = 0; i < count; ++i) {
        const BindOutcome outcome = BindHostValue(prepared, i + 1, values->get_Item(i).get());
        if (outcome == BindOutcome::refused_by_duckdb) {
            ThrowDuckDBError(database_path, TextOr(duckdb_prepare_error(prepared), kBindFailureText));
        }
        if (outcome == BindOutcome::no_value) {
            ThrowDuckDBError(database_path, kBindFailureText);
        }
    }
}

}  // namespace mduckdb
