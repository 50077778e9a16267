#pragma once

#include <string>

namespace mduckdb_host {

/** Shows the text in the user's editor, `$VISUAL`, `$EDITOR` or else vi, and returns what is saved. Throws
    `xUsageError` when the editor cannot be run or fails. */
std::string EditText(const std::string& text);

}  // namespace mduckdb_host
