#pragma once

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

namespace mduckdb_host {

/** What DuckDB says about an error. */
struct DuckDBError {
    /** As "Catalog"; empty when DuckDB's text does not tell. */
    std::string type;
    std::string message;
    /** Byte in the text of the SQL; -1 when unknown. */
    int64_t position = -1;
};

/** Takes an error text of DuckDB's apart: a JSON object, one with "Parser Error: " before it, or plain
    text, which becomes the message whole. */
DuckDBError ParseDuckDBError(std::string_view text);

/** The line of the SQL in which the position is, and a caret under it; empty when there is no such
    position. Long lines are cut on both sides. */
std::string MakeCaret(std::string_view sql, int64_t position);

/** An error as a person reads it: type and message, and the place in the SQL when it is known. */
std::string DescribeError(const DuckDBError& error, std::string_view sql);

/** The same for what the module threw while it ran `sql`, which may be empty. */
std::string DescribeException(const std::exception& exception, std::string_view sql);

/** A command line or a command of the shell makes no sense. */
class xUsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** Prints an error as a person reads it on stderr. */
void PrintError(std::string_view text);

}  // namespace mduckdb_host
