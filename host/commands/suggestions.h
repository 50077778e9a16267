#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CLI {  // NOLINT(readability-identifier-naming): the library's own
class App;       // its headers are slow to compile
}

namespace mduckdb_host {

/** An error text for a command and for options that do not exist, in the order in which they were typed, with
   a suggestion for each; empty when there are none. */
std::string DescribeUnknownWords(CLI::App& app, const std::vector<std::string>& words);

}  // namespace mduckdb_host
