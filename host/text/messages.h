#pragma once

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include "nbx/string.h"

namespace mduckdb_host {

/** An error as DuckDB reports it. */
struct DuckDBError {
    /** For example "Catalog"; empty when DuckDB's text does not name it. */
    std::string type;
    std::string message;
    /** Byte in the SQL text; -1 when unknown. */
    int64_t position = -1;
};

/** Reads an error text of DuckDB: a JSON object, one with "Parser Error: " before it, or plain text, which
    becomes the message unchanged. */
DuckDBError ParseDuckDBError(std::string_view text);

/** SQL that an error belongs to. */
struct SqlText {
    // NOLINTBEGIN(google-explicit-constructor): most SQL is a whole text, which converts without a word.
    SqlText(std::string_view sql_text = {}, int64_t sql_line = 1) : text(sql_text), line(sql_line) {}
    SqlText(const std::string& sql_text) : text(sql_text) {}
    SqlText(const char* sql_text) : text(sql_text) {}
    // NOLINTEND(google-explicit-constructor)

    std::string_view text;
    /** The line at which it begins in the script that contains it, counted from 1. */
    int64_t line = 1;
    /** Whether it is one statement of several. Then an error without a place names the line, too. */
    bool is_in_script = false;
};

/** The statement for the module. With bytes replaced it would mean something else: throws
    `std::runtime_error`, which shows the place, if it is not valid UTF-8. */
nbx::String ReadSql(const SqlText& sql);

/** The line of the SQL that contains the position, and a caret under it; empty when there is no such
    position. Long lines are cut on both sides. */
std::string MakeCaret(const SqlText& sql, int64_t position);

/** An error for people: type, message, and the place in the SQL when it is known. */
std::string DescribeError(const DuckDBError& error, const SqlText& sql);

/** The same for an exception that the module threw while it ran `sql`, which may be empty. */
std::string DescribeException(const std::exception& exception, const SqlText& sql);

/** A command line or a shell command that is used wrongly. */
class xUsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** Prints an error text on stderr. */
void PrintError(std::string_view text);

}  // namespace mduckdb_host
