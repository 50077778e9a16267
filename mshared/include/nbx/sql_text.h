#pragma once

#include <string>
#include <string_view>

namespace nbx {

namespace detail {

inline std::string QuoteSql(std::string_view text, char quote) {
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted += quote;
    for (const char character : text) {
        quoted.append(character == quote ? 2 : 1, character);
    }
    return quoted += quote;
}

}  // namespace detail

/** The UTF-8 text as a SQL string literal: in single quotes, with single quotes inside doubled. */
inline std::string QuoteLiteral(std::string_view text) {
    return detail::QuoteSql(text, '\'');
}

/** The UTF-8 text as a SQL identifier: in double quotes, with double quotes inside doubled. */
inline std::string QuoteIdentifier(std::string_view text) {
    return detail::QuoteSql(text, '"');
}

}  // namespace nbx
