#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "nbx/string.h"

namespace mduckdb_host {

using nbx::FromUtf8;
using nbx::ToUtf8;

/** Sets up the process to measure UTF-8 text, even if the environment names no UTF-8 locale. Call once at
    start. */
void InitDisplayWidth();

/** The first byte that is not valid UTF-8; the text's size if there is none. */
std::size_t FindInvalidUtf8(std::string_view text);

/** Columns that the text occupies on a terminal: 2 for wide characters (Chinese, Japanese, Korean, emoji), 0
    for combining ones, 1 for a byte that is not valid UTF-8. */
int DisplayWidth(std::string_view text);

/** The longest start of the text that fits into `columns`, whole characters only. */
std::string_view CutToWidth(std::string_view text, int columns);

/** The longest end of the text that fits into `columns`, whole characters only. Reads no more than that
    end. */
std::string_view CutStartToWidth(std::string_view text, int columns);

/** The text on one line and harmless on a terminal: line ends, tabs and other control characters become
    escapes, bytes that are not valid UTF-8 become U+FFFD. */
std::string ToPrintable(std::string_view text);

/** "1 row", "2,048 rows". */
std::string CountOf(uint64_t count, std::string_view what);

/** "1.5 MB (1,572,864 bytes)". */
std::string DescribeSize(uint64_t bytes);

}  // namespace mduckdb_host
