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
};

constexpr CellStorage kNoStorage{0, false};
constexpr CellStorage kString{16, true};

constexpr CellStorage Fixed(std::uint8_t width) {
    return {width, false};
}

constexpr std::int32_t kText = DUCKDB_TYPE_VARCHAR;

// By type code. GEOMETRY and VARIANT have a row for their storage only: their names are not given out.
constexpr std::size_t kNamedTypes = 40;
constexpr std::array<TypeRow, 42> kTypes{{
    {"INVALID", kText, kNoStorage},
    {"BOOLEAN", DUCKDB_TYPE_BOOLEAN, Fixed(1)},
    {"TINYINT", DUCKDB_TYPE_TINYINT, Fixed(1)},
    {"SMALLINT", DUCKDB_TYPE_SMALLINT, Fixed(2)},
    {"INTEGER", DUCKDB_TYPE_INTEGER, Fixed(4)},
    {"BIGINT", DUCKDB_TYPE_BIGINT, Fixed(8)},
    {"UTINYINT", DUCKDB_TYPE_UTINYINT, Fixed(1)},
    {"USMALLINT", DUCKDB_TYPE_USMALLINT, Fixed(2)},
    {"UINTEGER", DUCKDB_TYPE_UINTEGER, Fixed(4)},
    {"UBIGINT", DUCKDB_TYPE_UBIGINT, Fixed(8)},
    {"FLOAT", DUCKDB_TYPE_FLOAT, Fixed(4)},
    {"DOUBLE", DUCKDB_TYPE_DOUBLE, Fixed(8)},
    {"TIMESTAMP", DUCKDB_TYPE_TIMESTAMP, Fixed(8)},
    {"DATE", DUCKDB_TYPE_DATE, Fixed(4)},
    {"TIME", DUCKDB_TYPE_TIME, Fixed(8)},
    {"INTERVAL", kText, Fixed(16)},
    {"HUGEINT", kText, Fixed(16)},
    {"VARCHAR", DUCKDB_TYPE_VARCHAR, kString},
    {"BLOB", DUCKDB_TYPE_BLOB, kString},
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
    {nullptr, kText, kString},
    {nullptr, kText, kNoStorage},
}};
static_assert(DUCKDB_TYPE_TIME_NS == 39 && DUCKDB_TYPE_GEOMETRY == 40 && DUCKDB_TYPE_VARIANT == 41);

constexpr std::array<std::int32_t, 19> kHostTypes{
    MIRONA_TYPE_TEXT,   MIRONA_TYPE_BOOL,   MIRONA_TYPE_INT64,    MIRONA_TYPE_INT64,  MIRONA_TYPE_INT64,
    MIRONA_TYPE_INT64,  MIRONA_TYPE_UINT64, MIRONA_TYPE_UINT64,   MIRONA_TYPE_UINT64, MIRONA_TYPE_UINT64,
    MIRONA_TYPE_DOUBLE, MIRONA_TYPE_DOUBLE, MIRONA_TYPE_DATETIME, MIRONA_TYPE_DATE,   MIRONA_TYPE_TIME,
    MIRONA_TYPE_TEXT,   MIRONA_TYPE_TEXT,   MIRONA_TYPE_TEXT,     MIRONA_TYPE_BINARY,
};

constexpr std::array<const char*, 14> kHostTypeNames{
    "unknown", "array", "bool", "binary", "date", "datetime", "double",
    "int64",   "money", "null", "text",   "time", "uint64",   "variant",
};

/** The entry of a table, or `otherwise` where the table has none for the code. */
template <class Table, class Entry>
constexpr Entry EntryOr(const Table& table, std::size_t size, std::int32_t code, Entry otherwise,
                        Entry (*entry)(const typename Table::value_type&)) {
    const bool is_inside = code >= 0 && static_cast<std::size_t>(code) < size;
    return is_inside ? entry(table[static_cast<std::size_t>(code)]) : otherwise;
}

}  // namespace

const char* DuckDBTypeName(std::int32_t duckdb_type) noexcept {
    return EntryOr<decltype(kTypes), const char*>(kTypes, kNamedTypes, duckdb_type, "UNKNOWN",
                                                  [](const TypeRow& row) { return row.name; });
}

std::int32_t NormalizeDuckDBType(std::int32_t duckdb_type) noexcept {
    return EntryOr<decltype(kTypes), std::int32_t>(kTypes, kTypes.size(), duckdb_type, kText,
                                                   [](const TypeRow& row) { return row.normalised; });
}

std::int32_t HostTypeOfDuckDBType(std::int32_t normalised_type) noexcept {
    return EntryOr<decltype(kHostTypes), std::int32_t>(kHostTypes, kHostTypes.size(), normalised_type,
                                                       MIRONA_TYPE_TEXT,
                                                       [](const std::int32_t& type) { return type; });
}

const char* HostTypeName(std::int32_t host_type) noexcept {
    return EntryOr<decltype(kHostTypeNames), const char*>(kHostTypeNames, kHostTypeNames.size(), host_type,
                                                          kHostTypeNames[0],
                                                          [](const char* const& name) { return name; });
}

CellStorage GetCellStorage(std::int32_t duckdb_type) noexcept {
    return EntryOr<decltype(kTypes), CellStorage>(kTypes, kTypes.size(), duckdb_type, kNoStorage,
                                                  [](const TypeRow& row) { return row.storage; });
}

}  // namespace mduckdb
