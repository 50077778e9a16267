#pragma once

#include <duckdb.h>

#include <cstddef>
#include <string>

#include "duckdb_internals/column_writer.h"
#include "nbx/mrsql/duckdb_appender.h"

namespace mduckdb {

/** Why an array cannot be read at all; empty if it can. */
std::string RefuseArray(const nbx::mrsql::DuckDBColumnArray& array);

/** How many of `count` rows from `first` on have texts, BLOBs and BITs of at most `bytes` together; at least
    one. */
idx_t CountRowsOf(const nbx::mrsql::DuckDBColumnArray* columns, std::size_t column_count, uint64_t first,
                  idx_t count, uint64_t bytes);

/** Stores elements of an array that `RefuseArray` accepts, from `first` on, in rows of a column, from `row`
    on. Returns how many could be stored, and a text for the one after them. Elements that their type does not
    allow are refused, as a bind refuses them. Throws `std::bad_alloc`. */
idx_t StoreArray(ColumnWriter& column, idx_t row, const nbx::mrsql::DuckDBColumnArray& array, uint64_t first,
                 idx_t count, std::string& error);

}  // namespace mduckdb
