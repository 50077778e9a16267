#pragma once

#include <optional>
#include <string>

namespace mduckdb_host {

/** The version that a loaded library tells of itself in its note (`nbx/version.h`); nothing when it has none.
    `address` is any address inside the library. */
std::optional<std::string> ReadModuleVersion(const void* address);

}  // namespace mduckdb_host
