#include "base/text.h"

#include "nbx/exception.h"

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

std::string ToPath(const nbx::String& text) {
    std::string path = ToUtf8(text);
    if (path.find('\0') != path.npos) {
        throw nbx::xException(nbx::kLocationErrorCode, "A path must not contain NUL characters");
    }
    if (!(FromUtf8(path) == text)) {
        throw nbx::xException(nbx::kLocationErrorCode, path.c_str(), "The path is not valid UTF-16");
    }
    return path;
}

std::string QuoteLiteral(std::string_view text) {
    return Quote(text, '\'');
}

std::string QuoteIdentifier(std::string_view text) {
    return Quote(text, '"');
}

}  // namespace mduckdb
