#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_extension.h"

namespace mduckdb_host {

using DatabasePtr = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;

/** The module's root object. Throws `std::runtime_error` when the module has none. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> GetExtension();

/** The location for a path or ":memory:". */
nbx::smart_ptr<nbx::I_Location> MakeLocation(const std::string& path);

/** Limits each call of the databases that `MakeDatabase` returns from now on; 0 for none. */
void put_StatementTimeLimit(uint64_t milliseconds);

/** A closed database object for the path. */
DatabasePtr MakeDatabase(const std::string& path);

enum class IfMissing { kFail, kCreate };

/** Opens the database for reading and writing; the module may fall back to reading only. Throws the host's
    exceptions. */
DatabasePtr OpenDatabase(const std::string& path, IfMissing if_missing, bool is_read_only = false);

/** The first column of a query's result, as texts. Throws the host's exceptions. */
std::vector<std::string> QueryTexts(const DatabasePtr& database, const std::string& sql);

}  // namespace mduckdb_host
