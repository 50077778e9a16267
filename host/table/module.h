#pragma once

#include <exception>
#include <optional>
#include <string>

#include "table/function_table.h"

namespace mduckdb_host {

/** A module of this project has refused to start, and has printed the reason. */
class xModuleRefused : public std::exception {
  public:
    const char* what() const noexcept override { return "The module has refused to start"; }
};

/** Loads a module as the server does and fills the registry with its procedures. Afterwards
    `nbx::mrsql::GetDuckDBExtension` returns the module's root object. `name` is a file or the name of a
   module, which is searched relative to this program: in `../lib`, in `../lib/mduckdb` and in its folder.
   Returns an address inside the module. Throws `std::runtime_error` or `xModuleRefused`. Call it once per
   process.

    The module is never unloaded: the extension object, its type information and the worker threads of
    DuckDB live in it until the process ends. */
const void* LoadModule(const std::string& name, ProcedureRegistry& registry);

/** The version in the note of a loaded library (`nbx/version.h`); nothing when it has none.
    `address` is any address inside the library. */
std::optional<std::string> ReadModuleVersion(const void* address);

}  // namespace mduckdb_host
