#pragma once

#include <map>
#include <string>
#include <vector>

#include "mirona/extension_api.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_extension.h"

nbx::smart_ptr<nbx::I_Location> Location(const std::string& path);

/** A built module, loaded as a server does it and used only through its two exports. */
class LoadedModule {
  public:
    explicit LoadedModule(const std::string& file);

    nbx::mrsql::I_DuckDBExtension* operator->() const { return extension_.get(); }
    nbx::mrsql::I_DuckDBExtension& operator*() const { return *extension_; }

    /** The outcome of a call of a procedure. */
    struct Outcome {
        uint64_t rows = 0;
        std::vector<std::string> errors{};
    };
    /** Calls the procedure with texts, and reads at most `most_rows` rows of its cursor before closing it.
       Any number of threads may call at once. */
    Outcome Call(const std::string& procedure, const std::vector<std::string>& arguments,
                 uint64_t most_rows) const;
    /** Only if nothing of the module is left but this. */
    void Unload();

  private:
    void* module_;
    std::map<std::string, mirona_procedure_handler> procedures_;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> extension_;
};
