#pragma once

#include "nbx/mrsql/duckdb_statement.h"
#include "nbx/string.h"

namespace mduckdb {

class DuckDBDatabase;

/** Makes a statement on a database; the caller enters it into the database's list. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> MakeStatement(DuckDBDatabase& database, const nbx::String& sql);

}  // namespace mduckdb
