#pragma once

#include <string>

namespace mduckdb_host {

/** The path of `mduckdb/shellrc` in `$XDG_CONFIG_HOME` or `~/.config`; empty when neither is known. */
std::string FindStartUpFile();

/** The path of `mduckdb/history` in `$XDG_STATE_HOME` or `~/.local/state`; creates the folder and the file.
    Empty when that is not possible. */
std::string PrepareHistoryFile();

}  // namespace mduckdb_host
