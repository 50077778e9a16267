#pragma once

#include <string>

#include "bare_duckdb.h"
#include "mirona/extension_api.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_extension.h"

namespace bench {

/** Loads a built module as a host does: binds `GetHostTable()`, initialises. One module per process. */
void LoadModule(const std::string& file);

/** Handler of a registered procedure; terminates the program when there is none. */
mirona_procedure_handler GetProcedure(const std::string& name);

/** The module's root object. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> GetExtension();

/** A database object of the module on a path, opened with one thread. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> OpenDatabase(const std::string& path, bool read_write = false);
nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> MakeDatabase(const std::string& path);

nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> PrepareInModule(nbx::mrsql::I_DuckDBDatabase& database,
                                                              const std::string& sql);

/** A streaming cursor over the query. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> OpenStream(nbx::mrsql::I_DuckDBDatabase& database,
                                                      const nbx::String& sql);

/** Terminates the program unless a table has the same rows on both sides, at least one. */
void RequireSameRows(const std::string& what, const BareDuckDB& bare, nbx::mrsql::I_DuckDBDatabase& database,
                     const std::string& table);

}  // namespace bench
