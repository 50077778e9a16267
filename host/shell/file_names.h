#pragma once

#include <string>
#include <vector>

namespace mduckdb_host {

/** The paths that begin with the text, sorted; folders end with a slash. */
std::vector<std::string> CompleteFileName(const std::string& start);

}  // namespace mduckdb_host
