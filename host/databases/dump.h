#pragma once

#include <functional>
#include <string_view>

#include "databases/databases.h"

namespace mduckdb_host {

/** Writes SQL that creates everything in the current database again: the schema as DuckDB exports it, and the
   rows as INSERTs. Throws `std::runtime_error`, before it has written anything, for a schema that DuckDB
   cannot read back and for a column whose values do not survive as text. */
void WriteDump(const DatabasePtr& database, const std::function<void(std::string_view text)>& write);

}  // namespace mduckdb_host
