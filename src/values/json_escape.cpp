#include "values/json_escape.h"

#include <array>

namespace mduckdb {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

/** What a byte is written as: itself, a backslash and a letter, or its code in hexadecimal. */
enum : char { kItself = 0, kHex = 'u' };

constexpr std::array<char, 256> MakeEscapes() {
    std::array<char, 256> escapes{};
    for (std::size_t byte = 0; byte < escapes.size(); ++byte) {
        escapes[byte] = byte < 0x20 || byte >= 0x80 ? kHex : kItself;
    }
    escapes['"'] = '"';
    escapes['\\'] = '\\';
    escapes['\b'] = 'b';
    escapes['\t'] = 't';
    escapes['\n'] = 'n';
    escapes['\f'] = 'f';
    escapes['\r'] = 'r';
    return escapes;
}

constexpr std::array<char, 256> kEscapes = MakeEscapes();

}  // namespace

std::string JsonEscape(std::string_view text) {
    std::string result;
    result.reserve(text.size() + 2);
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const char escape = kEscapes[byte];
        if (escape == kItself) {
            result += c;
            continue;
        }
        result += '\\';
        result += escape;
        if (escape == kHex) {
            result += "00";
            result += kHexDigits[byte >> 4];
            result += kHexDigits[byte & 0xF];
        }
    }
    return result;
}

}  // namespace mduckdb
