#include "base/library_version.h"

#include <duckdb.h>
#include <duckdb_source_version.h>

namespace mduckdb {

namespace {

// Not the macros of duckdb.h: those of 2.0.0 say 1.5.6.
constexpr std::string_view kHeaderVersion = DUCKDB_SOURCE_VERSION;
static_assert(kHeaderVersion == MDUCKDB_DUCKDB_VERSION, "these DuckDB headers are not of the pinned version");

}  // namespace

std::string_view get_BuiltVersion() noexcept {
    return kHeaderVersion;
}

std::string DescribeVersionMismatch(std::string_view built, std::string_view library) {
    if (!library.empty() && library.front() == 'v') {
        library.remove_prefix(1);
    }
    if (built == library) {
        return {};
    }
    std::string text = "mduckdb is built for DuckDB ";
    text += built;
    text += " and cannot use the loaded DuckDB library of version ";
    text += library.empty() ? std::string_view("unknown") : library;
    text += '.';
    return text;
}

std::string CheckLibraryVersion() {
    const char* library = duckdb_library_version();
    return DescribeVersionMismatch(kHeaderVersion, library == nullptr ? "" : library);
}

}  // namespace mduckdb
