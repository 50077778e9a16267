#include "support/fake_host.h"

#include <utility>

#include "engines/idle_engines.h"
#include "nbx/mrsql/registry.h"
#include "procedures/procedures.h"

namespace mduckdb::test {
namespace {

FakeHost& HostOf(mirona_call call) {
    return *static_cast<FakeHost*>(call);
}

FakeValue& ValueOf(mirona_value value) {
    return *static_cast<FakeValue*>(value);
}

void FillCalls(mirona_extension_api& api) {
    api.register_procedure = [](mirona_host host, const mirona_procedure_def* def) {
        HostOf(host).registered.emplace_back(def->name);
        return HostOf(host).register_status;
    };
    api.arg_count = [](mirona_call call) { return HostOf(call).argument_count; };
    api.report_error = [](void* call, const char* text, std::uint64_t length) {
        if (HostOf(call).reports.empty()) {
            HostOf(call).had_extension_at_report = static_cast<bool>(nbx::mrsql::GetDuckDBExtension());
        }
        HostOf(call).reports.emplace_back(text, length);
    };
    // The values live as long as the host.
    api.create_table_cursor = [](mirona_call call, std::uint64_t, std::uint64_t, const char* const*,
                                 const mirona_value*, mirona_cursor* out) {
        *out = call;
        return std::uint32_t{0};
    };
    api.create_cursor = [](mirona_call call, const mirona_cursor_def* def, mirona_cursor* out) {
        HostOf(call).cursor = *def;
        HostOf(call).has_cursor = true;
        *out = &HostOf(call).cursor;
        return std::uint32_t{0};
    };
}

template <class Number>
mirona_value MakeNumber(mirona_call call, std::uint32_t type, Number number) {
    return HostOf(call).Make(type, std::to_string(number));
}

void FillMakers(mirona_extension_api& api) {
    api.make_blob_value = [](mirona_call call, const void* bytes, std::uint32_t length,
                             std::uint32_t) -> mirona_value {
        return HostOf(call).Make(MIRONA_TYPE_BINARY, {static_cast<const char*>(bytes), length});
    };
    api.make_text_value = [](mirona_call call, const char* text, std::uint32_t length,
                             std::uint32_t) -> mirona_value {
        return HostOf(call).Make(MIRONA_TYPE_TEXT, {text, length});
    };
    api.make_bool_value = [](mirona_call call, std::uint8_t value) {
        return MakeNumber(call, MIRONA_TYPE_BOOL, int{value});
    };
    api.make_date_value = [](mirona_call call, std::uint32_t packed) {
        return MakeNumber(call, MIRONA_TYPE_DATE, packed);
    };
    api.make_datetime_value = [](mirona_call call, std::uint64_t packed) {
        return MakeNumber(call, MIRONA_TYPE_DATETIME, packed);
    };
    api.make_time_value = [](mirona_call call, std::uint32_t packed) {
        return MakeNumber(call, MIRONA_TYPE_TIME, packed);
    };
    api.make_double_value = [](mirona_call call, double value) {
        return MakeNumber(call, MIRONA_TYPE_DOUBLE, value);
    };
    api.make_int_value = [](mirona_call call, std::int64_t value) {
        return MakeNumber(call, MIRONA_TYPE_INT64, value);
    };
    api.make_uint_value = [](mirona_call call, std::uint64_t value) {
        return MakeNumber(call, MIRONA_TYPE_UINT64, value);
    };
}

void FillReaders(mirona_extension_api& api) {
    api.value_is_null = [](mirona_value value) { return ValueOf(value).type == MIRONA_TYPE_NULL; };
    api.value_type = [](mirona_value value) { return ValueOf(value).type; };
    api.array_length = [](mirona_value value) {
        return static_cast<std::uint32_t>(ValueOf(value).items.size());
    };
    api.array_element = [](mirona_value value, std::uint64_t index) -> mirona_value {
        return ValueOf(value).items.at(index);
    };
    api.value_int64 = [](mirona_value value) { return ValueOf(value).number; };
    api.value_uint64 = [](mirona_value value) { return static_cast<std::uint64_t>(ValueOf(value).number); };
    api.value_text = [](mirona_call, mirona_value value, std::uint64_t* length) -> const char* {
        *length = ValueOf(value).text.size();
        return ValueOf(value).text.data();
    };
}

}  // namespace

FakeHost::FakeHost() {
    FillCalls(api_);
    FillMakers(api_);
    FillReaders(api_);
    BindApi(&api_);
}

FakeHost::~FakeHost() {
    CloseCursor();
    // No engine of this host's calls is left for the next test.
    IdleEngines::CloseAll();
}

void FakeHost::CloseCursor() {
    if (std::exchange(has_cursor, false)) {
        cursor.close(cursor.state);
    }
}

void FakeHost::Forget() {
    CloseCursor();
    values_.clear();
}

FakeValue* FakeHost::Make(std::uint32_t type, std::string text) {
    return &values_.emplace_back(FakeValue{type, std::move(text)});
}

FakeValue* FakeHost::Null() {
    return Make(MIRONA_TYPE_NULL, {});
}

FakeValue* FakeHost::Text(std::string text) {
    return Make(MIRONA_TYPE_TEXT, std::move(text));
}

FakeValue* FakeHost::Int(std::int64_t number) {
    FakeValue* value = Make(MIRONA_TYPE_INT64, std::to_string(number));
    value->number = number;
    return value;
}

FakeValue* FakeHost::Array(std::vector<FakeValue*> items) {
    FakeValue* value = Make(MIRONA_TYPE_ARRAY, {});
    value->items = std::move(items);
    return value;
}

std::string FakeHost::Cell(std::int32_t column) {
    const mirona_value cell = cursor.get_value(get_Call(), cursor.state, column);
    return cell != nullptr ? ValueOf(cell).text : "NULL";
}

}  // namespace mduckdb::test
