#pragma once

#include <string>

#include "function_table.h"

namespace mduckdb_host {

/** Loads a module the way the server does and fills the registry with its procedures; afterwards the
    module's databases are reached through `nbx::mrsql::GetDuckDBExtension`. `name` is a file, or the
    name of a module, which is looked for beside this program: in `../lib`, in `../lib/mduckdb` and in its
    folder. Gives an address inside the module. Throws `std::runtime_error`. Once a process.

    The module is never unloaded: the extension object, its type information and the worker threads of
    DuckDB live in it until the process ends. */
const void* LoadModule(const std::string& name, ProcedureRegistry& registry);

}  // namespace mduckdb_host
