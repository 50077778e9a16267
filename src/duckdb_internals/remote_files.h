#pragma once

#include <string>

namespace mduckdb {

/** Whether DuckDB reads the path (a file or a pattern) over a network. Throws `std::bad_alloc`. */
bool IsRemotePath(const std::string& path);

}  // namespace mduckdb
