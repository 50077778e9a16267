#pragma once

#include <duckdb.h>

namespace mduckdb {

/** Makes the failure of a pending result a result, with DuckDB's text unchanged, as executing in one call
    does; `duckdb_execute_pending` puts a sentence of its own before it. The caller destroys the result. A
    pending result without an error gives an empty result. Never throws. */
void TakePendingError(duckdb_pending_result pending, duckdb_result* out_result) noexcept;

}  // namespace mduckdb
