#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace mduckdb {

/* Byte-wise work on UTF-8 text that goes into DuckDB SQL. */

/** Without the leading and trailing bytes that `isspace` accepts. */
std::string_view Trim(std::string_view text) noexcept;

/** The parts between the full stops that stand outside double quotes, trimmed, with their quotes; one empty
    part for an empty text. Throws std::invalid_argument when a double quote is left open. */
std::vector<std::string> SplitQualifiedName(std::string_view text);

/** The part of a qualified name without its outer quotes, if it has them, and with a pair of double quotes
    inside as one. */
std::string UnquotePart(std::string_view part);

/** The texts with ", " between them. */
std::string JoinList(const std::vector<std::string>& items);

/** The table function call that reads the file. */
std::string ReadParquetCall(std::string_view uri);

/** Item of a select list that gives the column under its own name as a type that the host receives
    directly: the bare column when the type code is such a one, else a cast. */
std::string SelectItem(std::string_view column_name, std::int32_t duckdb_type);

/** The same, but a cell that cannot be cast becomes NULL and does not end the query. Slower where one is. */
std::string ForgivingSelectItem(std::string_view column_name, std::int32_t duckdb_type);

/** " WHERE " and the condition as it stands, or nothing for a blank one. */
std::string WhereClause(std::string_view condition);

}  // namespace mduckdb
