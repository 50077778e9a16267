#include "procedures/type_tables.h"

#include <duckdb.h>

#include <array>
#include <cstddef>

#include "mirona/extension_api.h"

namespace mduckdb {
namespace {

struct TypeRow {
    const char* name;
    std::int32_t normalised;
    CellStorage storage;
    std::int32_t host_type = MIRONA_TYPE_TEXT;  // of a normalised type
};

constexpr CellStorage kNoStorage{0, false};
constexpr CellStorage kString{16, true};

constexpr CellStorage Fixed(std::uint8_t width) {
    return {width, false};
}

constexpr std::int32_t kText = DUCKDB_TYPE_VARCHAR;
constexpr const char* kUnknown = "UNKNOWN";

// By type code. GEOMETRY and VARIANT have a row only for their storage: their names are never returned.
constexpr std::array<TypeRow, 42> kTypes{{
    {"INVALID", kText, kNoStorage},
    {"BOOLEAN", DUCKDB_TYPE_BOOLEAN, Fixed(1), MIRONA_TYPE_BOOL},
    {"TINYINT", DUCKDB_TYPE_TINYINT, Fixed(1), MIRONA_TYPE_INT64},
    {"SMALLINT", DUCKDB_TYPE_SMALLINT, Fixed(2), MIRONA_TYPE_INT64},
    {"INTEGER", DUCKDB_TYPE_INTEGER, Fixed(4), MIRONA_TYPE_INT64},
    {"BIGINT", DUCKDB_TYPE_BIGINT, Fixed(8), MIRONA_TYPE_INT64},
    {"UTINYINT", DUCKDB_TYPE_UTINYINT, Fixed(1), MIRONA_TYPE_UINT64},
    {"USMALLINT", DUCKDB_TYPE_USMALLINT, Fixed(2), MIRONA_TYPE_UINT64},
    {"UINTEGER", DUCKDB_TYPE_UINTEGER, Fixed(4), MIRONA_TYPE_UINT64},
    {"UBIGINT", DUCKDB_TYPE_UBIGINT, Fixed(8), MIRONA_TYPE_UINT64},
    {"FLOAT", DUCKDB_TYPE_FLOAT, Fixed(4), MIRONA_TYPE_DOUBLE},
    {"DOUBLE", DUCKDB_TYPE_DOUBLE, Fixed(8), MIRONA_TYPE_DOUBLE},
    {"TIMESTAMP", DUCKDB_TYPE_TIMESTAMP, Fixed(8), MIRONA_TYPE_DATETIME},
    {"DATE", DUCKDB_TYPE_DATE, Fixed(4), MIRONA_TYPE_DATE},
    {"TIME", DUCKDB_TYPE_TIME, Fixed(8), MIRONA_TYPE_TIME},
    {"INTERVAL", kText, Fixed(16)},
    {"HUGEINT", kText, Fixed(16)},
    {"VARCHAR", DUCKDB_TYPE_VARCHAR, kString},
    {"BLOB", DUCKDB_TYPE_BLOB, kString, MIRONA_TYPE_BINARY},
    {"DECIMAL", DUCKDB_TYPE_DOUBLE, kNoStorage},
    {"TIMESTAMP_S", DUCKDB_TYPE_TIMESTAMP, Fixed(8)},
    {"TIMESTAMP_MS", DUCKDB_TYPE_TIMESTAMP, Fixed(8)},
    {"TIMESTAMP_NS", DUCKDB_TYPE_TIMESTAMP, Fixed(8)},
    {"ENUM", kText, kNoStorage},
    {"LIST", kText, Fixed(16)},
    {"STRUCT", kText, kNoStorage},
    {"MAP", kText, Fixed(16)},
    {"UUID", kText, Fixed(16)},
    {"UNION", kText, kNoStorage},
    {"BIT", kText, kString},
    {"TIME_TZ", DUCKDB_TYPE_TIME, Fixed(8)},
    {"TIMESTAMP_TZ", DUCKDB_TYPE_TIMESTAMP, Fixed(8)},
    {"UHUGEINT", kText, Fixed(16)},
    {"ARRAY", kText, kNoStorage},
    {"ANY", kText, kNoStorage},
    {"BIGNUM", kText, kString},
    {"SQLNULL", kText, Fixed(4)},
    {"STRING_LITERAL", kText, kNoStorage},
    {"INTEGER_LITERAL", kText, kNoStorage},
    {"TIME_NS", DUCKDB_TYPE_TIME, Fixed(8)},
    {kUnknown, kText, kString},
    {kUnknown, kText, kNoStorage},
}};
static_assert(DUCKDB_TYPE_TIME_NS == 39 && DUCKDB_TYPE_GEOMETRY == 40 && DUCKDB_TYPE_VARIANT == 41);

constexpr std::array<const char*, 14> kHostTypeNames{
    "unknown", "array", "bool", "binary", "date", "datetime", "double",
    "int64",   "money", "null", "text",   "time", "uint64",   "variant",
};

const TypeRow& RowOf(std::int32_t duckdb_type) noexcept {
    static constexpr TypeRow kOther{kUnknown, kText, kNoStorage};
    const bool is_inside = duckdb_type >= 0 && static_cast<std::size_t>(duckdb_type) < kTypes.size();
    return is_inside ? kTypes[static_cast<std::size_t>(duckdb_type)] : kOther;
}

}  // namespace

const char* DuckDBTypeName(std::int32_t duckdb_type) noexcept {
    return RowOf(duckdb_type).name;
}

std::int32_t NormalizeDuckDBType(std::int32_t duckdb_type) noexcept {
    return RowOf(duckdb_type).normalised;
}

std::int32_t HostTypeOfDuckDBType(std::int32_t normalised_type) noexcept {
    return RowOf(normalised_type).host_type;
}

const char* HostTypeName(std::int32_t host_type) noexcept {
    const bool is_inside = host_type >= 0 && static_cast<std::size_t>(host_type) < kHostTypeNames.size();
    return kHostTypeNames[is_inside ? static_cast<std::size_t>(host_type) : 0];
}

CellStorage GetCellStorage(std::int32_t duckdb_type) noexcept {
    return RowOf(duckdb_type).storage;
}

}  // namespace mduckdb
