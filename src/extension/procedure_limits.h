#pragma once

#include "nbx/mrsql/duckdb_procedure_limits.h"

namespace mduckdb {

/** Sets the limits of the procedures' calls; throws `xDuckDBError` and changes nothing if a folder cannot be
    used. */
void PutProcedureLimits(const nbx::mrsql::DuckDBProcedureLimits& limits);
nbx::mrsql::DuckDBProcedureLimits GetProcedureLimits();

}  // namespace mduckdb
