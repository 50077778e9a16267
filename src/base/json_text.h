#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mduckdb {

/** The deepest nesting that is passed to DuckDB. Its conversion of JSON recurses once per level, and 500
    levels overflow a stack of 256 KB, a size that a host may well choose for its threads. */
inline constexpr std::size_t kDeepestJson = 200;

/** Whether arrays and objects in the text nest deeper than `limit`. Does not recurse, stops at the first
    level beyond the limit, and accepts any bytes. Brackets inside strings do not count. For text that is not
    JSON the answer only has to bound how deep a parser could nest. */
bool NestsDeeperThan(std::string_view json, std::size_t limit) noexcept;

/** Whether the text is the JSON literal null, with JSON white space around it. */
bool IsJsonNull(std::string_view json) noexcept;

/** UTF-8 text escaped for use between the quotes of a JSON string, in pure ASCII.

    Bytes of 0x80 and above are escaped one by one and not as characters: a JSON reader sees a character for
    each byte, and a reader that needs the original text joins their codes to UTF-8 again. */
std::string JsonEscape(std::string_view text);

}  // namespace mduckdb
