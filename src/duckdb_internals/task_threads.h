#pragma once

#include <duckdb.h>

#include <memory>

#include "base/server_waits.h"

namespace mduckdb {

/** Has DuckDB's own threads enter and leave `waits` whenever they work for the connection; from its next
    statement on, until it is closed. Throws `std::bad_alloc`. */
void ReportTaskThreads(duckdb_connection connection, std::shared_ptr<ServerWaits> waits);
/** Whether an extension has brought an HTTP client into the engine. Quick. */
bool HasHttpClient(duckdb_connection connection);

}  // namespace mduckdb
