#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "data/datum.h"

namespace mduckdb_host {

/** A word of the command line as a value: what reads as the JSON of null, a number, a text or an array
    is that value, everything else is the text as it stands (`true`, an object, a path). Whole numbers
    that no 64-bit integer holds stay text, since a double would lose digits. */
Datum ParseArgument(const std::string& text);

/** A JSON text as a value, objects as their JSON text. Throws `std::invalid_argument` for what is no
    JSON. */
Datum ParseJson(const std::string& text);

/** `CALL procedure(arguments)` of a statement. */
struct CallStatement {
    std::string procedure;
    /** What stands between the parentheses and behind them. */
    std::string_view arguments;
    /** Where in the statement they start. */
    std::size_t arguments_start = 0;
};

/** An argument that is no literal; `what()` is for people. */
class xLiteralError : public std::runtime_error {
  public:
    xLiteralError(const std::string& text, std::size_t position)
        : std::runtime_error(text), position_(position) {}
    /** Byte in the text that was parsed. */
    std::size_t get_Position() const noexcept { return position_; }

  private:
    std::size_t position_;
};

/** The call that a statement is; nothing when it is another statement. The arguments are good as long
    as the statement. */
std::optional<CallStatement> FindCall(std::string_view statement);

/** Reads SQL literals up to the closing parenthesis: texts in single quotes, numbers, NULL, TRUE and
    FALSE, lists of these in brackets. Throws `xLiteralError`. */
std::vector<Datum> ParseLiterals(std::string_view arguments);

}  // namespace mduckdb_host
