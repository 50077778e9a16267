#include "values/variant_type_names.h"

#include <array>

namespace mduckdb {
namespace {

// By code. TIMESTAMP_MILIS is DuckDB's own spelling.
constexpr std::array<const char*, kVariantTypeCount> kNames = {
    "VARIANT_NULL",
    "BOOL_TRUE",
    "BOOL_FALSE",
    "INT8",
    "INT16",
    "INT32",
    "INT64",
    "INT128",
    "UINT8",
    "UINT16",
    "UINT32",
    "UINT64",
    "UINT128",
    "FLOAT",
    "DOUBLE",
    "DECIMAL",
    "VARCHAR",
    "BLOB",
    "UUID",
    "DATE",
    "TIME_MICROS",
    "TIME_NANOS",
    "TIMESTAMP_SEC",
    "TIMESTAMP_MILIS",
    "TIMESTAMP_MICROS",
    "TIMESTAMP_NANOS",
    "TIME_MICROS_TZ",
    "TIMESTAMP_MICROS_TZ",
    "INTERVAL",
    "OBJECT",
    "ARRAY",
    "BIGNUM",
    "BITSTRING",
    "GEOMETRY",
};

}  // namespace

const char* VariantTypeName(uint32_t code) noexcept {
    return code < kNames.size() ? kNames[code] : "UNKNOWN";
}

}  // namespace mduckdb
