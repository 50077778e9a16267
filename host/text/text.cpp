#include "text/text.h"

#include <fmt/format.h>
#include <langinfo.h>
#include <utf8.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace mduckdb_host {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

/** Removes the first character from the text and returns it; U+FFFD for a byte that does not start one. */
char32_t TakeCharacter(std::string_view& text) {
    const char* position = text.data();
    const char* const end = position + text.size();
    char32_t character = kReplacement;
    try {
        character = utf8::next(position, end);
    } catch (const utf8::exception&) {
        position = text.data() + 1;
    }
    text.remove_prefix(static_cast<std::size_t>(position - text.data()));
    return character;
}

/** Where the character that ends at `end` begins. UTF-8 has at most three trailing bytes. */
std::size_t FindCharacterBefore(std::string_view text, std::size_t end) {
    std::size_t start = end - 1;
    while (start > 0 && end - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0U) == 0x80U) {
        --start;
    }
    return start;
}

int CharacterWidth(char32_t character) {
    if (character < 0x7F) {
        return character >= ' ' ? 1 : 0;
    }
    // Unassigned characters have no width in the table; terminals show them as one box.
    const int width = wcwidth(static_cast<wchar_t>(character));
    return width < 0 ? 1 : width;
}

void AppendPrintable(std::string& out, char32_t character) {
    switch (character) {
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        default:
            break;
    }
    const bool is_control = character < ' ' || (character >= 0x7F && character < 0xA0);
    // These change the direction of the text that follows, even beyond the cell of a table.
    const bool is_direction =
        (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
    if (is_control || is_direction) {
        fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<uint32_t>(character));
    } else {
        utf8::append(character, std::back_inserter(out));
    }
}

}  // namespace

void InitDisplayWidth() {
    std::setlocale(LC_CTYPE, "");
    if (std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

std::size_t FindInvalidUtf8(std::string_view text) {
    return static_cast<std::size_t>(utf8::find_invalid(text.begin(), text.end()) - text.begin());
}

int DisplayWidth(std::string_view text) {
    int width = 0;
    while (!text.empty()) {
        width += CharacterWidth(TakeCharacter(text));
    }
    return width;
}

std::string_view CutToWidth(std::string_view text, int columns) {
    std::string_view rest = text;
    int width = 0;
    while (!rest.empty()) {
        std::string_view after = rest;
        width += CharacterWidth(TakeCharacter(after));
        if (width > columns) {
            break;
        }
        rest = after;
    }
    return text.substr(0, text.size() - rest.size());
}

std::string_view CutStartToWidth(std::string_view text, int columns) {
    std::size_t start = text.size();
    for (int width = 0; start > 0;) {
        const std::size_t before = FindCharacterBefore(text, start);
        width += DisplayWidth(text.substr(before, start - before));
        if (width > columns) {
            break;
        }
        start = before;
    }
    return text.substr(start);
}

std::string ToPrintable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        AppendPrintable(out, TakeCharacter(text));
    }
    return out;
}

std::string CountOf(uint64_t count, std::string_view what) {
    const std::string digits = fmt::format("{}", count);
    std::string grouped;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) {
            grouped += ',';
        }
        grouped += digits[i];
    }
    return fmt::format("{} {}{}", grouped, what, count == 1 ? "" : "s");
}

std::string DescribeSize(uint64_t bytes) {
    constexpr const char* kUnits[] = {"bytes", "KB", "MB", "GB", "TB", "PB"};
    std::size_t unit = 0;
    double size = static_cast<double>(bytes);
    for (; size >= 1024 && unit + 1 < std::size(kUnits); ++unit) {
        size /= 1024;
    }
    return unit == 0 ? CountOf(bytes, "byte")
                     : fmt::format("{:.1f} {} ({})", size, kUnits[unit], CountOf(bytes, "byte"));
}

}  // namespace mduckdb_host
