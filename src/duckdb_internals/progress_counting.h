#pragma once

#include <duckdb.h>

namespace mduckdb {

/** Whether DuckDB counts the progress of the connection's statements, without printing it. Needs no
    transaction, unlike the SQL settings, which a locked configuration also refuses. Not while DuckDB works
    for the connection. */
void CountProgress(duckdb_connection connection, bool is_counted) noexcept;

}  // namespace mduckdb
