#pragma once

#include <duckdb.h>

namespace mduckdb {

/** Whether the statement may write files; false for one that failed to be prepared. */
bool WritesFiles(duckdb_prepared_statement prepared) noexcept;
/** Closes the files that a run of the statement on this connection was writing when it failed. DuckDB would
    keep them until the statement runs again or is destroyed, and then ask an object store once more. Only
    when the run has ended. False where they are kept all the same, as by DuckDB 2.0. */
bool CloseUnfinishedFiles(duckdb_connection connection, duckdb_prepared_statement prepared) noexcept;

}  // namespace mduckdb
