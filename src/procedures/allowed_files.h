#pragma once

#include <string>
#include <vector>

namespace mduckdb {

/** The path of a database file without links, if it and its log are in one of the folders (real paths) or
    below; a file that does not exist may be missing there. Throws `std::runtime_error` for any other file,
   and does not reveal whether that exists. */
std::string RequireAllowed(const std::string& file, const std::vector<std::string>& folders);

}  // namespace mduckdb
