#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mduckdb {

/* Byte-wise work on UTF-8 text that goes into DuckDB SQL. */

/** Without the leading and trailing bytes that `isspace` accepts. */
std::string_view Trim(std::string_view text) noexcept;

/** The parts between the full stops that stand outside double quotes, trimmed, with their quotes; one empty
    part for an empty text. Throws std::invalid_argument for an unclosed double quote. */
std::vector<std::string> SplitQualifiedName(std::string_view text);

/** The part of a qualified name without its outer quotes, if it has them, and with doubled quotes inside made
    single. */
std::string UnquotePart(std::string_view part);

/** The texts with ", " between them. */
std::string JoinList(const std::vector<std::string>& items);

/** The table function call that reads the file. */
std::string ReadParquetCall(std::string_view uri);

/** " WHERE " and the unchanged condition, or nothing for a blank one. */
std::string WhereClause(std::string_view condition);

}  // namespace mduckdb
