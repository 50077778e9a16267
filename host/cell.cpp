#include "cell.h"

#include <array>

#include "mirona/extension_api.h"

namespace mduckdb_host {

namespace {

// By the index of the alternative in `Cell::Content`.
constexpr std::array<uint32_t, std::variant_size_v<Cell::Content>> kTypes = {
    MIRONA_TYPE_NULL,   MIRONA_TYPE_BOOL, MIRONA_TYPE_INT64,    MIRONA_TYPE_UINT64,
    MIRONA_TYPE_DOUBLE, MIRONA_TYPE_TEXT, MIRONA_TYPE_BINARY,   MIRONA_TYPE_VARIANT,
    MIRONA_TYPE_DATE,   MIRONA_TYPE_TIME, MIRONA_TYPE_DATETIME, MIRONA_TYPE_ARRAY};

constexpr std::array<const char*, 14> kTypeNames = {"unknown",  "array",  "bool",   "binary", "date",
                                                    "datetime", "double", "int64",  "money",  "null",
                                                    "text",     "time",   "uint64", "variant"};

}  // namespace

uint32_t get_HostType(const Cell& cell) noexcept {
    return kTypes[cell.content.index()];
}

const char* get_HostTypeName(uint32_t host_type) noexcept {
    return host_type < kTypeNames.size() ? kTypeNames[host_type] : kTypeNames[0];
}

bool IsNumeric(const Column& column) noexcept {
    constexpr uint32_t kHugeInt = 16;
    constexpr uint32_t kUHugeInt = 32;
    constexpr uint32_t kBignum = 35;
    return column.host_type == MIRONA_TYPE_DOUBLE || column.host_type == MIRONA_TYPE_INT64 ||
           column.host_type == MIRONA_TYPE_MONEY || column.host_type == MIRONA_TYPE_UINT64 ||
           column.duckdb_type == kHugeInt || column.duckdb_type == kUHugeInt || column.duckdb_type == kBignum;
}

}  // namespace mduckdb_host
