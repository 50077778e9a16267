#pragma once

#include <cstddef>
#include <string_view>

namespace mduckdb {

/** Levels of nesting that are handed to DuckDB, whose conversion of JSON recurses once a level: 500 levels
    overflow a stack of 256 KB, which a host may well give its threads. */
inline constexpr std::size_t kDeepestJson = 200;

/** Whether arrays and objects in the text nest deeper than `limit`. Does not recurse, stops at the first
    level too many, and takes any bytes: brackets inside strings do not count, and the answer for text that
    is no JSON only has to bound what a parser could nest. */
bool NestsDeeperThan(std::string_view json, std::size_t limit) noexcept;

/** Whether the text is the JSON literal null, with JSON's blanks around it. */
bool IsJsonNull(std::string_view json) noexcept;

}  // namespace mduckdb
