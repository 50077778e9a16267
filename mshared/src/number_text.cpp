#include "number_text.h"

#include <locale.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>

#include "unicode.h"

namespace nbx {
namespace {

std::u16string_view SkipBlanks(std::u16string_view text) noexcept {
    const std::size_t start = text.find_first_not_of(u" \t\r\n");
    return start == std::u16string_view::npos ? std::u16string_view() : text.substr(start);
}

struct SignedDigits {
    bool is_negative = false;
    /** The digits' value, or the largest number when it is larger. */
    uint64_t magnitude = 0;
};

SignedDigits ReadDigits(std::u16string_view text) noexcept {
    text = SkipBlanks(text);
    SignedDigits result;
    if (!text.empty() && (text.front() == u'-' || text.front() == u'+')) {
        result.is_negative = text.front() == u'-';
        text.remove_prefix(1);
    }
    constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
    for (const char16_t unit : text) {
        if (unit < u'0' || unit > u'9') {
            break;
        }
        const uint64_t digit = static_cast<uint64_t>(unit - u'0');
        if (result.magnitude > (kMax - digit) / 10) {
            result.magnitude = kMax;
            break;
        }
        result.magnitude = result.magnitude * 10 + digit;
    }
    return result;
}

/** The part of the text that may belong to a decimal number, or the whole text when it starts with a
    letter, since "inf" and "nan" are numbers but "information" starts with none. */
std::string NumberPrefix(std::u16string_view text) {
    const std::size_t first = text.find_first_not_of(u"+-");
    if (first != std::u16string_view::npos && first < 2 && (text[first] == u'i' || text[first] == u'n')) {
        const std::string word = Utf16ToUtf8(text.substr(first));
        return word == "inf" || word == "infinity" || word == "nan" ? Utf16ToUtf8(text) : std::string();
    }
    return Utf16ToUtf8(text.substr(0, text.find_first_not_of(u"+-.0123456789eE")));
}

locale_t PlainLocale() noexcept {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

}  // namespace

int64_t ParseLLong(std::u16string_view text) noexcept {
    const SignedDigits digits = ReadDigits(text);
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    if (digits.magnitude > static_cast<uint64_t>(kMax)) {
        return digits.is_negative ? std::numeric_limits<int64_t>::min() : kMax;
    }
    const int64_t value = static_cast<int64_t>(digits.magnitude);
    return digits.is_negative ? -value : value;
}

uint64_t ParseULLong(std::u16string_view text) noexcept {
    const SignedDigits digits = ReadDigits(text);
    return digits.is_negative ? 0 : digits.magnitude;
}

double ParseDouble(std::u16string_view text) {
    const std::string prefix = NumberPrefix(SkipBlanks(text));
    return strtod_l(prefix.c_str(), nullptr, PlainLocale());
}

bool ParseBoolean(std::u16string_view text) {
    constexpr std::u16string_view kTrue = u"true";
    text = SkipBlanks(text);
    const bool is_true =
        text.size() == kTrue.size() && std::equal(kTrue.begin(), kTrue.end(), text.begin(),
                                                  [](char16_t a, char16_t b) { return a == (b | 0x20); });
    return is_true || ParseDouble(text) != 0;
}

}  // namespace nbx
