#pragma once

#include <cstdint>

namespace mduckdb {

/** Kinds of value inside a VARIANT that are known here: the codes from 0 up to this number. */
constexpr uint32_t kVariantTypeCount = 34;

/** The kinds that the conversion to host values names; numbered as DuckDB numbers them. */
enum class VariantType : uint32_t {
    VARIANT_NULL = 0,
    BOOL_TRUE = 1,
    BOOL_FALSE = 2,
    INT8 = 3,
    INT16 = 4,
    INT32 = 5,
    INT64 = 6,
    UINT8 = 8,
    UINT16 = 9,
    UINT32 = 10,
    UINT64 = 11,
    FLOAT = 13,
    DOUBLE = 14,
    VARCHAR = 16,
    BLOB = 17,
    DATE = 19,
    TIMESTAMP_MILIS = 23,
};

/** The name of a kind as it stands in an envelope; "UNKNOWN" for a code that is not known. Static text. */
const char* VariantTypeName(uint32_t code) noexcept;

}  // namespace mduckdb
