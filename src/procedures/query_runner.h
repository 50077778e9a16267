#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mirona/extension_api.h"
#include "procedures/private_engine.h"

namespace mduckdb {

/** The column's name for the host: DuckDB's, or "Column" and the position from 1 when DuckDB has none. */
std::string ColumnName(std::optional<std::string_view> duckdb_name, idx_t column);

/** Throws std::invalid_argument when the text holds a NUL character, at which DuckDB would cut it. */
void RequireNoNul(const char* procedure_name, const std::string& sql);

/** Runs the base query, which holds text of the procedure's arguments, and returns a host cursor over its
    rows, which then owns the engine. `limit` is a number of rows in decimal digits, or empty. Throws after
    cleaning up when anything fails; a base query that is not exactly one SELECT fails too. */
mirona_cursor RunQuery(mirona_call call, const char* procedure_name, PrivateEngine engine,
                       const std::string& base_query, const std::string& limit);

}  // namespace mduckdb
