#pragma once

#include <string>

#include "mirona/extension_api.h"
#include "procedures/private_engine.h"

namespace mduckdb {

/** The column's name as the host gets it: DuckDB's, or Column and the position from 1 when there is none. */
std::string ColumnName(const char* duckdb_name, idx_t column);

/** The text that fetches the rows of a base query with these select items. */
std::string FinalQuery(const std::string& select_list, const std::string& base_query,
                       const std::string& limit);

/** Runs the base query and gives the host a cursor over its rows, which owns the engine from then on.
    `limit` is a number of rows in decimal digits, or empty. Failures are thrown with everything undone. */
mirona_cursor RunQuery(mirona_call call, PrivateEngine engine, const std::string& base_query,
                       const std::string& limit);

}  // namespace mduckdb
