#pragma once

#include <string>
#include <string_view>

namespace mduckdb {

/** The DuckDB version that this build is made for, for example 1.5.6. */
std::string_view get_BuiltVersion() noexcept;

/** Compares a version with that of a library, which may have a leading v. Empty when they are the same, else
    one line for the operator that names both. */
std::string DescribeVersionMismatch(std::string_view built, std::string_view library);

/** The same for this build and the DuckDB library that this process has loaded. The module reaches into
    DuckDB's C++ classes, so it must not call anything in another version of the library: the code that starts
    the module checks this first and refuses to continue on a mismatch. */
std::string CheckLibraryVersion();

}  // namespace mduckdb
