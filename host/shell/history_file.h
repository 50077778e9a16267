#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace mduckdb_host {

/* The file of the shell's history. A line `#` and a number, the time in seconds, stands before each entry,
   which may have several lines. A file that cannot be read or written is ignored: the history is a
   convenience. */

/** The entries, oldest first. */
std::vector<std::string> ReadHistory(const std::string& file);
void AppendToHistory(const std::string& file, const std::string& entry);
/** Keeps only the last entries. */
void ShortenHistory(const std::string& file, std::size_t most);

}  // namespace mduckdb_host
