#include "values/variant_conversion.h"

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "values/host_values.h"
#include "values/value_text.h"
#include "values/variant_envelope.h"
#include "values/variant_type_names.h"

namespace mduckdb {
namespace {

using Converter = nbx::smart_ptr<nbx::I_Value> (*)(duckdb_value child, uint32_t variant_type);

nbx::smart_ptr<nbx::I_Value> ConvertToEnvelope(duckdb_value child, uint32_t variant_type) {
    return MakeVariantEnvelope(VariantTypeName(variant_type), DuckDBValueToText(child));
}

nbx::smart_ptr<nbx::I_Value> ConvertInt8(duckdb_value child, uint32_t variant_type) {
    return MakeVariantEnvelope(VariantTypeName(variant_type), std::to_string(duckdb_get_int8(child)));
}

nbx::smart_ptr<nbx::I_Value> ConvertNull(duckdb_value /*child*/, uint32_t /*variant_type*/) {
    return MakeNullValue();
}

nbx::smart_ptr<nbx::I_Value> ConvertBool(duckdb_value /*child*/, uint32_t variant_type) {
    return MakeHostValue<nbx::CreateValueBoolean>(variant_type ==
                                                  static_cast<uint32_t>(VariantType::BOOL_TRUE));
}

nbx::smart_ptr<nbx::I_Value> ConvertText(duckdb_value child, uint32_t /*variant_type*/) {
    return MakeTextOfValue(child);
}

nbx::smart_ptr<nbx::I_Value> ConvertBytes(duckdb_value child, uint32_t /*variant_type*/) {
    return ConvertBlob(child);
}

template <ValueFactory kFactory, auto kGetter>
nbx::smart_ptr<nbx::I_Value> ConvertNumber(duckdb_value child, uint32_t /*variant_type*/) {
    return ConvertByGetter<kFactory, kGetter>(child);
}

nbx::DateContent ToDateContent(const duckdb_date_struct& date) {
    return {date.year, static_cast<uint8_t>(date.month), static_cast<uint8_t>(date.day)};
}

/** No host date holds an infinite one, so it travels as text. */
nbx::smart_ptr<nbx::I_Value> ConvertDate(duckdb_value child, uint32_t variant_type) {
    const duckdb_date date = duckdb_get_date(child);
    if (!duckdb_is_finite_date(date)) {
        return ConvertToEnvelope(child, variant_type);
    }
    const nbx::DateContent content = ToDateContent(duckdb_from_date(date));
    return nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueDate(true, &content, nullptr));
}

/** Nothing when the time is infinite or outside the range in microseconds. The value becomes a
    TIMESTAMP only when it has a date and a time. */
std::optional<duckdb_timestamp_struct> SplitMillis(duckdb_value child) {
    constexpr int64_t kMicrosInMilli = 1000;
    constexpr int64_t kMaxMillis = std::numeric_limits<int64_t>::max() / kMicrosInMilli;
    const int64_t millis = duckdb_get_timestamp_ms(child).millis;
    if (millis > kMaxMillis || millis < -kMaxMillis) {
        return std::nullopt;
    }
    try {
        return duckdb_from_timestamp(duckdb_get_timestamp(child));
    } catch (const std::exception&) {  // DuckDB refuses some dates by throwing
        return std::nullopt;
    }
}

nbx::smart_ptr<nbx::I_Value> ConvertTimestampMillis(duckdb_value child, uint32_t variant_type) {
    constexpr int32_t kMicrosInMilli = 1000;
    const std::optional<duckdb_timestamp_struct> parts = SplitMillis(child);
    if (!parts) {
        return ConvertToEnvelope(child, variant_type);
    }
    const nbx::TimeContent time = {
        static_cast<uint8_t>(parts->time.hour), static_cast<uint8_t>(parts->time.min),
        static_cast<uint8_t>(parts->time.sec), static_cast<uint16_t>(parts->time.micros / kMicrosInMilli)};
    return MakeHostValue<nbx::CreateValueDateTime>(nbx::DateTimeContent{ToDateContent(parts->date), time});
}

struct KindConverter {
    VariantType type;
    Converter converter;
};

// Kinds that are not named here travel in an envelope with DuckDB's text.
constexpr KindConverter kKindConverters[] = {
    {VariantType::VARIANT_NULL, ConvertNull},
    {VariantType::BOOL_TRUE, ConvertBool},
    {VariantType::BOOL_FALSE, ConvertBool},
    {VariantType::INT8, ConvertInt8},
    {VariantType::INT16, ConvertNumber<nbx::CreateValueShort, duckdb_get_int16>},
    {VariantType::INT32, ConvertNumber<nbx::CreateValueLong, duckdb_get_int32>},
    {VariantType::INT64, ConvertNumber<nbx::CreateValueLLong, duckdb_get_int64>},
    {VariantType::UINT8, ConvertNumber<nbx::CreateValueByte, duckdb_get_uint8>},
    {VariantType::UINT16, ConvertNumber<nbx::CreateValueUShort, duckdb_get_uint16>},
    {VariantType::UINT32, ConvertNumber<nbx::CreateValueULong, duckdb_get_uint32>},
    {VariantType::UINT64, ConvertNumber<nbx::CreateValueULLong, duckdb_get_uint64>},
    {VariantType::FLOAT, ConvertNumber<nbx::CreateValueFloat, duckdb_get_float>},
    {VariantType::DOUBLE, ConvertNumber<nbx::CreateValueDouble, duckdb_get_double>},
    {VariantType::VARCHAR, ConvertText},
    {VariantType::BLOB, ConvertBytes},
    {VariantType::DATE, ConvertDate},
    {VariantType::TIMESTAMP_MILIS, ConvertTimestampMillis},
};

constexpr std::array<Converter, kVariantTypeCount> MakeConvertersByCode() {
    std::array<Converter, kVariantTypeCount> converters{};
    converters.fill(ConvertToEnvelope);
    for (const KindConverter& entry : kKindConverters) {
        converters[static_cast<std::size_t>(entry.type)] = entry.converter;
    }
    return converters;
}

constexpr std::array<Converter, kVariantTypeCount> kConvertersByCode = MakeConvertersByCode();

}  // namespace

nbx::smart_ptr<nbx::I_Value> ConvertVariantValue(duckdb_value child, uint32_t variant_type) {
    if (child == nullptr || duckdb_is_null_value(child)) {
        return MakeNullValue();
    }
    const Converter converter =
        variant_type < kVariantTypeCount ? kConvertersByCode[variant_type] : ConvertToEnvelope;
    return converter(child, variant_type);
}

}  // namespace mduckdb
