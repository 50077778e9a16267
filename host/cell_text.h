#pragma once

#include <string>
#include <string_view>

#include "cell.h"

namespace mduckdb_host {

/** The cell as a person reads it: numbers in full and with the fewest digits that read back as the
    same number, dates as 2024-03-15, date-times as 2024-03-15 12:34:56.789, bytes as `\x` and
    hexadecimal digits, lists as JSON. Nothing for a null. */
void AppendText(std::string& out, const Cell& cell);
std::string ToText(const Cell& cell);

/** The cell as a JSON value: numbers, booleans, lists and JSON as such, everything else as text, NaN and
    the infinities too. Always valid JSON: what is not UTF-8 becomes U+FFFD. */
void AppendJson(std::string& out, const Cell& cell);

/** A text as a JSON string with its quotes. */
void AppendJsonString(std::string& out, std::string_view text);

}  // namespace mduckdb_host
