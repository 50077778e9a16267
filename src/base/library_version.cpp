#include "base/library_version.h"

#include <duckdb.h>

#define MDUCKDB_TEXT_OF(x) #x
#define MDUCKDB_VERSION_TEXT(major, minor, patch) \
    MDUCKDB_TEXT_OF(major) "." MDUCKDB_TEXT_OF(minor) "." MDUCKDB_TEXT_OF(patch)

namespace mduckdb {

namespace {

constexpr std::string_view kHeaderVersion =
    MDUCKDB_VERSION_TEXT(DUCKDB_API_VERSION_MAJOR, DUCKDB_API_VERSION_MINOR, DUCKDB_API_VERSION_PATCH);
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
