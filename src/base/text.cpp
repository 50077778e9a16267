#include "base/text.h"

namespace mduckdb {
namespace {

std::string Quote(std::string_view text, char quote) {
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted += quote;
    for (const char character : text) {
        if (character == quote) {
            quoted += quote;
        }
        quoted += character;
    }
    quoted += quote;
    return quoted;
}

}  // namespace

std::string QuoteLiteral(std::string_view text) {
    return Quote(text, '\'');
}

std::string QuoteIdentifier(std::string_view text) {
    return Quote(text, '"');
}

}  // namespace mduckdb
