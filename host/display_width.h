#pragma once

#include <string>
#include <string_view>

namespace mduckdb_host {

/** Makes the process count the columns of UTF-8 text, also where the environment names no UTF-8
    locale. Call once at start. */
void InitDisplayWidth();

/** Columns that the text takes on a terminal: 2 for wide characters (Chinese, Japanese, Korean, emoji),
    0 for combining ones. A byte that is no UTF-8 counts 1. */
int DisplayWidth(std::string_view text);

/** As much of the start of the text as fits into `columns`, whole characters only. */
std::string_view CutToWidth(std::string_view text, int columns);

/** The text on one line and harmless on a terminal: line ends, tabs and other control characters are
    written as escapes, what is not UTF-8 as U+FFFD. */
std::string ToPrintable(std::string_view text);

}  // namespace mduckdb_host
