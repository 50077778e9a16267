#pragma once

#include <duckdb.h>

namespace mduckdb {

/** Lets `ServerWaits` know when an engine gets an HTTP client, and writes to a new configuration what an
   engine needs to behave the same in every version of DuckDB, where a host would otherwise lose rows, types
   of columns or files that older versions can read. What is written afterwards has precedence. False when
   memory ran out. */
[[nodiscard]] bool WriteEngineSettings(duckdb_config config) noexcept;

}  // namespace mduckdb
