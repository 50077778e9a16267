#pragma once

#include <duckdb.h>

#include <cstdint>

namespace duckdb {
class ClientContext;
struct BoundCastInfo;
struct LogicalType;
}  // namespace duckdb

namespace mduckdb {

/** Casts one element with the outcome of DuckDB's cast, but without its vectors, which cost several times as
    much as the cast. False for an element that is left to DuckDB's cast, such as one that it refuses. */
using QuickCast = bool (*)(const void* element, void* slot, uint8_t width, uint8_t scale);

/** The quick form of the cast that DuckDB uses in the context. Null if there is none, or if something has
    replaced DuckDB's own cast. */
QuickCast FindQuickCast(duckdb::ClientContext& context, const duckdb::BoundCastInfo& cast,
                        const duckdb::LogicalType& source, const duckdb::LogicalType& target);

}  // namespace mduckdb
