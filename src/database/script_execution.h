#pragma once

#include "database/query_result.h"
#include "host/engine_lock.h"
#include "nbx/string.h"
#include "nbx/value.h"

namespace mduckdb {

class DuckDBDatabase;

/** Runs a SQL text on the database's connection; gives one result a statement, in their order. With
    parameters (neither null nor empty) the text is one statement. Throws `xDuckDBError`, or
    `xInterruptError` after an interrupt, and then leaves nothing of DuckDB's behind; a transaction that
    was open when a statement of a script failed is rolled back. */
ResultList ExecuteScript(DuckDBDatabase& database, const nbx::String& sql, const nbx::ValueRow* parameters)
    NBX_REQUIRES(gEngineLock);

}  // namespace mduckdb
