#pragma once

#include <duckdb.h>

#include <cstdint>

namespace mduckdb {

/** How many rows the statement of this result changed, or 0 for a statement of another kind: what
    `duckdb_rows_changed` gives, which copies the rows into new chunks to read the one number. The result
    stays the caller's. Throws only when memory runs out. */
int64_t GetRowsChanged(duckdb_result* result);

}  // namespace mduckdb
