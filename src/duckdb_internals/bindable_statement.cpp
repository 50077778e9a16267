#include "duckdb_internals/bindable_statement.h"

#include <duckdb/common/types/decimal.hpp>
#include <duckdb/common/types/value.hpp>
#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/planner/expression/bound_parameter_data.hpp>
#include <string>
#include <utility>

#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/version_differences.h"

namespace mduckdb {

using duckdb::BoundParameterData;
using duckdb::LogicalTypeId;
using duckdb::Value;

namespace {

/** The value that a bind function creates from its arguments. */
template <auto kBind>
constexpr auto kMakeValue = nullptr;
template <>
constexpr auto kMakeValue<duckdb_bind_boolean> = [](bool value) { return Value::BOOLEAN(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_int8> = [](int8_t value) { return Value::TINYINT(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_int16> = [](int16_t value) { return Value::SMALLINT(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_int32> = [](int32_t value) { return Value::INTEGER(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_int64> = [](int64_t value) { return Value::BIGINT(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_uint8> = [](uint8_t value) { return Value::UTINYINT(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_uint16> = [](uint16_t value) { return Value::USMALLINT(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_uint32> = [](uint32_t value) { return Value::UINTEGER(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_uint64> = [](uint64_t value) { return Value::UBIGINT(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_hugeint> =
    [](duckdb_hugeint value) { return Value::HUGEINT(duckdb::hugeint_t(value.upper, value.lower)); };
template <>
constexpr auto kMakeValue<duckdb_bind_uhugeint> =
    [](duckdb_uhugeint value) { return Value::UHUGEINT(duckdb::uhugeint_t(value.upper, value.lower)); };
template <>
constexpr auto kMakeValue<duckdb_bind_float> = [](float value) { return Value::FLOAT(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_double> = [](double value) { return Value::DOUBLE(value); };
template <>
constexpr auto kMakeValue<duckdb_bind_date> =
    [](duckdb_date value) { return Value::DATE(duckdb::date_t(value.days)); };
template <>
constexpr auto kMakeValue<duckdb_bind_time> =
    [](duckdb_time value) { return Value::TIME(duckdb::dtime_t(value.micros)); };
template <>
constexpr auto kMakeValue<duckdb_bind_timestamp> =
    [](duckdb_timestamp value) { return Value::TIMESTAMP(duckdb::timestamp_t(value.micros)); };
template <>
constexpr auto kMakeValue<duckdb_bind_timestamp_tz> =
    [](duckdb_timestamp value) { return Value::TIMESTAMPTZ(duckdb::timestamp_tz_t(value.micros)); };
template <>
constexpr auto kMakeValue<duckdb_bind_interval> =
    [](duckdb_interval value) { return Value::INTERVAL(value.months, value.days, value.micros); };
template <>
constexpr auto kMakeValue<duckdb_bind_decimal> = [](duckdb_decimal decimal) {
    const duckdb::hugeint_t number(decimal.value.upper, decimal.value.lower);
    return decimal.width > duckdb::Decimal::MAX_WIDTH_INT64
               ? Value::DECIMAL(number, decimal.width, decimal.scale)
               : Value::DECIMAL(static_cast<int64_t>(number.lower), decimal.width, decimal.scale);
};
template <>
constexpr auto kMakeValue<duckdb_bind_varchar_length> =
    [](const char* text, idx_t length) { return Value(std::string(text, length)); };
template <>
constexpr auto kMakeValue<duckdb_bind_blob> = [](const void* bytes, idx_t length) {
    return Value::BLOB(static_cast<duckdb::const_data_ptr_t>(bytes), length);
};

/** The place of a parameter's value; null when it has none. */
BoundParameterData* FindPlace(duckdb_prepared_statement prepared, idx_t index) {
    auto& statement = *reinterpret_cast<duckdb::PreparedStatementWrapper*>(prepared);
    const auto name = statement.param_index_to_name.find(index);
    if (name == statement.param_index_to_name.end()) {
        return nullptr;
    }
    const auto value = statement.values.find(version::ParameterKey(name->second));
    return value != statement.values.end() ? &value->second : nullptr;
}

/** The type that a parameter has in DuckDB when it is bound to this value. */
LogicalTypeId ParameterTypeOf(const Value& value) {
    const LogicalTypeId type = value.type().id();
    return type == LogicalTypeId::VARCHAR ? LogicalTypeId::STRING_LITERAL : type;
}

/** Replaces only the value when the type stays the same: creating a `BoundParameterData` copies the type
   twice, which costs more than the bind. DuckDB has to compare types with parts (a DECIMAL's width), so they
   take the slow path. */
void Put(BoundParameterData& place, Value&& value) {
    const bool has_same_type = place.return_type.id() == ParameterTypeOf(value) &&
                               !version::HasTypeInfo(place.return_type) &&
                               !version::HasTypeInfo(value.type());
    if (has_same_type) {
        place.SetValue(std::move(value));
    } else {
        place = BoundParameterData(std::move(value));
    }
}

}  // namespace

duckdb_prepared_statement* BindableStatement::Receive() noexcept {
    places_.clear();
    return prepared_.Receive();
}

void BindableStatement::Reset() noexcept {
    places_.clear();
    prepared_.Reset();
}

duckdb_state BindableStatement::ClearBindings() noexcept {
    places_.clear();
    return duckdb_clear_bindings(prepared_.get());
}

template <auto kBind, class... Arguments>
duckdb_state BindableStatement::Bind(idx_t index, Arguments... arguments) {
    if (index < places_.size() && places_[index] != nullptr) {
        try {
            Put(*places_[index], kMakeValue<kBind>(arguments...));
            return DuckDBSuccess;
        } catch (...) {
            ThrowIfOutOfMemory();
            // Let DuckDB report why it rejects the value.
        }
    } else if (places_.empty()) {
        places_.resize(duckdb_nparams(prepared_.get()) + 1);
    }
    const duckdb_state state = kBind(prepared_.get(), index, arguments...);
    if (state == DuckDBSuccess) {
        places_[index] = FindPlace(prepared_.get(), index);
    }
    return state;
}

template duckdb_state BindableStatement::Bind<duckdb_bind_boolean>(idx_t, bool);
template duckdb_state BindableStatement::Bind<duckdb_bind_int8>(idx_t, int8_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_int16>(idx_t, int16_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_int32>(idx_t, int32_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_int64>(idx_t, int64_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_uint8>(idx_t, uint8_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_uint16>(idx_t, uint16_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_uint32>(idx_t, uint32_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_uint64>(idx_t, uint64_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_hugeint>(idx_t, duckdb_hugeint);
template duckdb_state BindableStatement::Bind<duckdb_bind_uhugeint>(idx_t, duckdb_uhugeint);
template duckdb_state BindableStatement::Bind<duckdb_bind_float>(idx_t, float);
template duckdb_state BindableStatement::Bind<duckdb_bind_double>(idx_t, double);
template duckdb_state BindableStatement::Bind<duckdb_bind_date>(idx_t, duckdb_date);
template duckdb_state BindableStatement::Bind<duckdb_bind_time>(idx_t, duckdb_time);
template duckdb_state BindableStatement::Bind<duckdb_bind_timestamp>(idx_t, duckdb_timestamp);
template duckdb_state BindableStatement::Bind<duckdb_bind_timestamp_tz>(idx_t, duckdb_timestamp);
template duckdb_state BindableStatement::Bind<duckdb_bind_interval>(idx_t, duckdb_interval);
template duckdb_state BindableStatement::Bind<duckdb_bind_decimal>(idx_t, duckdb_decimal);
template duckdb_state BindableStatement::Bind<duckdb_bind_varchar_length>(idx_t, const char*, idx_t);
template duckdb_state BindableStatement::Bind<duckdb_bind_blob>(idx_t, const void*, idx_t);

}  // namespace mduckdb
