#pragma once

#include <optional>
#include <string>

#include "table/function_table.h"

namespace mduckdb_host {

/** Loads a module the way the server does and fills the registry with its procedures; afterwards the
    module's databases are reached through `nbx::mrsql::GetDuckDBExtension`. `name` is a file, or the
    name of a module, which is looked for beside this program: in `../lib`, in `../lib/mduckdb` and in its
    folder. Gives an address inside the module. Throws `std::runtime_error`. Once a process.

    The module is never unloaded: the extension object, its type information and the worker threads of
    DuckDB live in it until the process ends. */
const void* LoadModule(const std::string& name, ProcedureRegistry& registry);

/** The version that a loaded library tells of itself in its note (`nbx/version.h`); nothing when it has none.
    `address` is any address inside the library. */
std::optional<std::string> ReadModuleVersion(const void* address);

}  // namespace mduckdb_host
