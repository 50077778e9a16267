#pragma once

#include <duckdb.h>

namespace mduckdb {

/** Lets `ServerWaits` know when an engine gets an HTTP client, and writes to a new configuration what an
   engine needs to behave the same in every version of DuckDB, where a host would otherwise lose rows, types
   of columns or files that older versions can read. What is written afterwards has precedence. False when
   memory ran out. */
[[nodiscard]] bool WriteEngineSettings(duckdb_config config) noexcept;

/** For an engine that may read some folders only: where DuckDB does not follow links when it compares a path
    with the folders, a path with a ".." after a link would lead out of them, so the engine refuses every path
   with a "..". To be called once for an engine. */
[[nodiscard]] bool RefuseParentsInPaths(duckdb_connection connection) noexcept;

}  // namespace mduckdb
