#include "base/json_text.h"

#include <array>

namespace mduckdb {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

/** How a byte is written: as itself, as a backslash and a letter, or as its hexadecimal code. */
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

bool NestsDeeperThan(std::string_view json, std::size_t limit) noexcept {
    std::size_t depth = 0;
    bool is_in_string = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (is_in_string) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                is_in_string = false;
            }
        } else if (c == '"') {
            is_in_string = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return true;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

bool IsJsonNull(std::string_view json) noexcept {
    constexpr std::string_view kBlanks = " \t\n\r";
    const std::size_t first = json.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return false;
    }
    return json.substr(first, json.find_last_not_of(kBlanks) - first + 1) == "null";
}

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
