#pragma once

#include <string>

#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_extension.h"

namespace mduckdb_host {

using DatabasePtr = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;

/** The module's root object. Throws `std::runtime_error` when the module offers none. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> GetExtension();

/** The location of a path (":memory:" included). */
nbx::smart_ptr<nbx::I_Location> MakeLocation(const std::string& path);

/** A database object on the path, closed. */
DatabasePtr MakeDatabase(const std::string& path);

enum class IfMissing { kFail, kCreate };

/** Opens the database for reading and writing, falling back to reading where the module does. Throws the
    host's exceptions. */
DatabasePtr OpenDatabase(const std::string& path, IfMissing if_missing, bool is_read_only = false);

/** Opens a database that a command line names: it must exist, and a Ctrl-C ends the program meanwhile.
    Says on stderr when the file could be opened for reading only. Throws `std::runtime_error` with a text
    for people. */
DatabasePtr OpenForCommand(const std::string& path, bool is_read_only);

}  // namespace mduckdb_host
