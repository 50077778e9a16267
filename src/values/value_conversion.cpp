#include "values/value_conversion.h"

#include <array>

#include "base/holders.h"
#include "duckdb_internals/plain_functions.h"
#include "duckdb_internals/value_guard.h"
#include "values/host_values.h"
#include "values/value_text.h"
#include "values/variant_conversion.h"
#include "values/variant_type_names.h"

namespace mduckdb {
namespace {

using Converter = nbx::smart_ptr<nbx::I_Value> (*)(duckdb_value value);

nbx::smart_ptr<nbx::I_Value> ConvertDecimal(duckdb_value value) {
    if (!IsReadable(value)) {
        return MakeStringValue({});
    }
    return ConvertByGetter<nbx::CreateValueDouble, duckdb_get_double>(value);
}

nbx::smart_ptr<nbx::I_Value> ConvertNull(duckdb_value /*value*/) {
    return MakeNullValue();
}

struct TypeConverter {
    duckdb_type type;
    Converter converter;
};

// Types that are not named here are handed over as DuckDB's text, dates and times among them.
constexpr TypeConverter kTypeConverters[] = {
    {DUCKDB_TYPE_BOOLEAN, ConvertByGetter<nbx::CreateValueBoolean, duckdb_get_bool>},
    {DUCKDB_TYPE_TINYINT, ConvertByGetter<nbx::CreateValueShort, duckdb_get_int16>},
    {DUCKDB_TYPE_SMALLINT, ConvertByGetter<nbx::CreateValueShort, duckdb_get_int16>},
    {DUCKDB_TYPE_INTEGER, ConvertByGetter<nbx::CreateValueLong, duckdb_get_int32>},
    {DUCKDB_TYPE_BIGINT, ConvertByGetter<nbx::CreateValueLLong, duckdb_get_int64>},
    {DUCKDB_TYPE_UTINYINT, ConvertByGetter<nbx::CreateValueByte, duckdb_get_uint8>},
    {DUCKDB_TYPE_USMALLINT, ConvertByGetter<nbx::CreateValueUShort, duckdb_get_uint16>},
    {DUCKDB_TYPE_UINTEGER, ConvertByGetter<nbx::CreateValueULong, duckdb_get_uint32>},
    {DUCKDB_TYPE_UBIGINT, ConvertByGetter<nbx::CreateValueULLong, duckdb_get_uint64>},
    {DUCKDB_TYPE_FLOAT, ConvertByGetter<nbx::CreateValueFloat, duckdb_get_float>},
    {DUCKDB_TYPE_DOUBLE, ConvertByGetter<nbx::CreateValueDouble, duckdb_get_double>},
    {DUCKDB_TYPE_DECIMAL, ConvertDecimal},
    {DUCKDB_TYPE_BLOB, ConvertBlob},
    {DUCKDB_TYPE_SQLNULL, ConvertNull},
};

constexpr std::size_t kConverterCount = DUCKDB_TYPE_VARIANT + 1;

constexpr std::array<Converter, kConverterCount> MakeConvertersByCode() {
    std::array<Converter, kConverterCount> converters{};
    converters.fill(MakeTextOfValue);
    for (const TypeConverter& entry : kTypeConverters) {
        converters[entry.type] = entry.converter;
    }
    return converters;
}

constexpr std::array<Converter, kConverterCount> kConvertersByCode = MakeConvertersByCode();

nbx::smart_ptr<nbx::I_Value> ConvertVariant(duckdb_value value, uint32_t variant_type) {
    const ValueHolder child(duckdb_value_variant_child(value));
    return ConvertVariantValue(child.get(), variant_type);
}

}  // namespace

nbx::smart_ptr<nbx::I_Value> ConvertBlob(duckdb_value value) {
    const duckdb_blob blob = duckdb_get_blob(value);
    const TextHolder owner(static_cast<char*>(blob.data));
    return MakeBinaryValue(owner ? std::string_view(owner.get(), blob.size) : std::string_view());
}

nbx::smart_ptr<nbx::I_Value> ConvertDuckDBValue(duckdb_value value, const uint32_t* variant_type) {
    if (value == nullptr || duckdb_is_null_value(value)) {
        return MakeNullValue();
    }
    // The type belongs to the value.
    const duckdb_type type = duckdb_get_type_id(duckdb_get_value_type(value));
    if (type == DUCKDB_TYPE_VARIANT && variant_type != nullptr) {
        return ConvertVariant(value, *variant_type);
    }
    const Converter converter = type < kConverterCount ? kConvertersByCode[type] : MakeTextOfValue;
    return converter(value);
}

nbx::smart_ptr<nbx::I_Value> ConvertCellValue(duckdb_value value, uint32_t column_type) {
    if (column_type == DUCKDB_TYPE_VARIANT && value != nullptr && !duckdb_is_null_value(value)) {
        const uint32_t variant_type = duckdb_value_variant_type(value);
        if (variant_type < kVariantTypeCount) {
            return ConvertDuckDBValue(value, &variant_type);
        }
    }
    return ConvertDuckDBValue(value, nullptr);
}

}  // namespace mduckdb
