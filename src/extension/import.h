#pragma once

#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"

namespace mduckdb {

/** Imports an export into a database that was just created. Where DuckDB's import statement fails, the
   database is created again and the export's statements run one by one: views in an order that respects their
   dependencies, and without options that only another version of DuckDB knows. The files of the export are
   not changed. When that fails as well, throws the error of the import statement. */
void ImportBackup(nbx::mrsql::I_DuckDBDatabase& database, const nbx::I_Location& backup);

}  // namespace mduckdb
