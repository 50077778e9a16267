#include <cstdio>
#include <string_view>

#include "base/library_version.h"
#include "extension/extension.h"
#include "mirona/extension_api.h"
#include "nbx/mrsql/registry.h"
#include "nbx/standard_descriptors.h"
#include "procedures/procedures.h"

#define MDUCKDB_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

/** Whether the module can work with the DuckDB library that was loaded; if not, reports it where an operator
   and the host can see it.
   Before this, nothing may call DuckDB: of another version's symbols some are missing, which the loader
   accepts (cmake/weaken_duckdb.sh). */
bool CheckLibrary(mirona_host host) {
    const std::string mismatch = mduckdb::CheckLibraryVersion();
    if (mismatch.empty()) {
        return true;
    }
    std::fprintf(stderr, "%s\n", mismatch.c_str());
    mduckdb::GetApi().report_error(host, mismatch.data(), mismatch.size());
    return false;
}

}  // namespace

MDUCKDB_EXPORT void mirona_extension_bind_api(const mirona_extension_api* api) {
    mduckdb::BindApi(api);
}

MDUCKDB_EXPORT void mirona_extension_init(mirona_host host) {
    // Engines do the same when they open, but restores and probes open files without one.
    nbx::OccupyStandardDescriptors();
    try {
        if (CheckLibrary(host)) {
            nbx::mrsql::SetDuckDBExtension(mduckdb::MakeExtension());
            mduckdb::RegisterProcedures(host);
        }
    } catch (...) {  // The caller may be C, so no exception may reach it.
        constexpr std::string_view kText = "Unexpected DuckDB error";
        mduckdb::GetApi().report_error(host, kText.data(), kText.size());
    }
}
