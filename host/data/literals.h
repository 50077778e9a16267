#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "data/datum.h"

namespace mduckdb_host {

/** Lists and JSON go this deep, as far as the module binds arrays. */
constexpr std::size_t kMostLevels = 200;

/** Lists or JSON that go deeper; `what()` is for people. */
class xNestingError : public std::invalid_argument {
  public:
    xNestingError();
};

/** The value that a word of the command line means: the JSON of null, a number, a string or an array is that
    value, any other word is text (`true`, an object, a path). Integers that do not fit into 64 bits stay
    text, since a double would lose digits. Throws `xNestingError`. */
Datum ParseArgument(const std::string& text);

/** The value of a JSON text; an object stays JSON text. Throws `std::invalid_argument` if the text is not
    JSON, and `xNestingError`. */
Datum ParseJson(const std::string& text);

/** A statement `CALL procedure(arguments)`. */
struct CallStatement {
    std::string procedure;
    /** Everything after the opening parenthesis. */
    std::string_view arguments;
    /** Where in the statement they start. */
    std::size_t arguments_start = 0;
};

/** An argument that is not a literal; `what()` is for people. */
class xLiteralError : public std::runtime_error {
  public:
    xLiteralError(const std::string& text, std::size_t position)
        : std::runtime_error(text), position_(position) {}
    /** Byte in the parsed text. */
    std::size_t get_Position() const noexcept { return position_; }

  private:
    std::size_t position_;
};

/** The call, if the statement is one. `arguments` refers to the statement. */
std::optional<CallStatement> FindCall(std::string_view statement);

/** Reads SQL literals up to the closing parenthesis: texts in single quotes, numbers, NULL, TRUE, FALSE, and
    lists of these in brackets. Throws `xLiteralError`. */
std::vector<Datum> ParseLiterals(std::string_view arguments);

}  // namespace mduckdb_host
