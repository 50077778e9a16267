#pragma once

#include <cstddef>
#include <string>
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

/** UTF-8 text made fit to stand between the quotes of a JSON string, in pure ASCII.

    Bytes of 0x80 and above are escaped one by one and not as characters: a JSON reader sees a character
    for each byte, and a reader that wants the text back joins their codes to UTF-8 again. */
std::string JsonEscape(std::string_view text);

}  // namespace mduckdb
