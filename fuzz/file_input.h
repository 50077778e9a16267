#pragma once

#include <string>
#include <string_view>

namespace fuzz {

/** The path of a file with this content, which the next call replaces. */
std::string MakeInputFile(std::string_view bytes, const char* name);

/** Makes the ends of a Parquet file right: its magic words, and a length of the footer that is inside of the
 * file. */
std::string MendParquet(std::string_view bytes);

/** Makes the checksums of the headers and of all blocks of a DuckDB database right. */
void MendChecksums(std::string& database);

}  // namespace fuzz
