#pragma once

#include <duckdb.h>

#include <memory>

namespace duckdb {
class Vector;
}  // namespace duckdb

namespace mduckdb {

/** Which parts of a column a cast converts to text. */
enum class TextParts : bool { all, variants };

/** The column with NULL for each row that holds a value in these parts which DuckDB must not convert to text,
    see `IsReadable`; null when there is no such value, and the column can be cast as it is. DuckDB casts the
    elements of all lists at once, also those of rows that are NULL, so none of them may hold one. Flattens
    the column. Throws what DuckDB throws. */
std::unique_ptr<duckdb::Vector> HideUnreadable(duckdb::Vector& column, idx_t count, TextParts parts);

}  // namespace mduckdb
