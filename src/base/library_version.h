#pragma once

#include <string>
#include <string_view>

namespace mduckdb {

/** The DuckDB version that this build is made for, as 1.5.6. */
std::string_view get_BuiltVersion() noexcept;

/** Compares a version with that of a library, which may carry a leading v. Empty when they are the same,
    else one line for the operator that names both. */
std::string DescribeVersionMismatch(std::string_view built, std::string_view library);

/** The same for this build and the DuckDB library that this process has loaded. The functions beside this
    one reach into DuckDB's C++ classes, so with another library nothing may be called: whoever starts the
    module asks this first and refuses to go on when there is a mismatch. */
std::string CheckLibraryVersion();

}  // namespace mduckdb
