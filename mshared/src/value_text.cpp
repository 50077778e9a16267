#include "value_text.h"

#include <locale.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <utility>

#include "unicode.h"

namespace nbx {
namespace {

template <class T>
String NumberText(T number) {
    // Wide enough for the shortest form of any number of 64 bits.
    char digits[32];
    const char* const start = digits;
    const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    return String(std::u16string(start, end));
}

/** Reads the fields of dates and times from a text, one after the other. Only ASCII digits count, so the text
    is converted to UTF-8 first: `std::from_chars` reads narrow text only and ignores the locale. */
class FieldReader {
  public:
    explicit FieldReader(const String& text) : text_(Utf16ToUtf8(text.get_View())) {}

    bool get_IsAtEnd() const noexcept { return position_ == text_.size(); }
    bool Skip(char expected) noexcept {
        const bool is_there = !get_IsAtEnd() && text_[position_] == expected;
        position_ += static_cast<std::size_t>(is_there);
        return is_there;
    }
    /** A number from 0 to `max`; nothing if there is none. */
    std::optional<int32_t> Number(int32_t max) noexcept {
        int32_t number = 0;
        const char* const start = text_.data() + position_;
        const auto read = std::from_chars(start, text_.data() + text_.size(), number);
        // from_chars accepts a minus sign, which no field may have; a date's is read before its year.
        if (read.ec != std::errc() || *start == '-' || number > max) {
            return std::nullopt;
        }
        position_ += static_cast<std::size_t>(read.ptr - start);
        return number;
    }
    /** The milliseconds of a fraction; digits beyond the third are cut off. */
    std::optional<uint16_t> Fraction() noexcept {
        const std::size_t start = position_;
        uint32_t millis = 0;
        for (uint32_t weight = 100; !get_IsAtEnd() && text_[position_] >= '0' && text_[position_] <= '9';
             ++position_, weight /= 10) {
            millis += weight * static_cast<uint32_t>(text_[position_] - '0');
        }
        return position_ == start ? std::nullopt : std::optional<uint16_t>(static_cast<uint16_t>(millis));
    }

    std::optional<DateContent> Date() noexcept {
        const bool is_negative = Skip('-');
        const auto year = Number(INT32_MAX);
        const auto month = year && Skip('-') ? Number(12) : std::nullopt;
        const auto day = month && Skip('-') ? Number(31) : std::nullopt;
        if (!day) {
            return std::nullopt;
        }
        return DateContent{is_negative ? -*year : *year, static_cast<uint8_t>(*month),
                           static_cast<uint8_t>(*day)};
    }
    std::optional<TimeContent> Time() noexcept {
        // DuckDB has the time 24:00:00, and clocks have leap seconds.
        const auto hours = Number(24);
        const auto minutes = hours && Skip(':') ? Number(59) : std::nullopt;
        if (!minutes) {
            return std::nullopt;
        }
        TimeContent time{static_cast<uint8_t>(*hours), static_cast<uint8_t>(*minutes), 0, 0};
        if (Skip(':')) {
            const auto seconds = Number(60);
            const auto millis = seconds && Skip('.') ? Fraction() : std::optional<uint16_t>(uint16_t{0});
            if (!seconds || !millis) {
                return std::nullopt;
            }
            time.seconds = static_cast<uint8_t>(*seconds);
            time.milliseconds = *millis;
        }
        return time;
    }

  private:
    std::string text_;
    std::size_t position_ = 0;
};

/** Appends the number with leading zeros up to the width. */
void AppendPadded(uint32_t number, std::size_t width, std::u16string& text) {
    char digits[10];
    const char* const start = digits;
    const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    const auto length = static_cast<std::size_t>(end - start);
    text.append(length < width ? width - length : 0, u'0');
    text.append(start, end);
}

void AppendDate(const DateContent& date, std::u16string& text) {
    if (date.year < 0) {
        text += u'-';
    }
    AppendPadded(static_cast<uint32_t>(std::abs(int64_t{date.year})), 4, text);
    text += u'-';
    AppendPadded(date.month, 2, text);
    text += u'-';
    AppendPadded(date.day, 2, text);
}

void AppendTime(const TimeContent& time, std::u16string& text) {
    AppendPadded(time.hours, 2, text);
    text += u':';
    AppendPadded(time.minutes, 2, text);
    text += u':';
    AppendPadded(time.seconds, 2, text);
    text += u'.';
    AppendPadded(time.milliseconds, 3, text);
}

std::u16string_view SkipBlanks(std::u16string_view text) noexcept {
    const std::size_t start = text.find_first_not_of(u" \t\r\n");
    return start == std::u16string_view::npos ? std::u16string_view() : text.substr(start);
}

/** What `ReadDigits` found. It reads digits by hand: the C library's conversions depend on the locale and do
    not read UTF-16. */
struct SignedDigits {
    bool is_negative = false;
    /** The value of the digits, or the largest number if they exceed it. */
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

/** The part of the text that may belong to a decimal number, or the whole text if it is a word for a number:
    "inf" is a number, but "information" does not start with one. Cut off before `strtod`, which would read
    hexadecimal numbers too. */
std::string NumberPrefix(std::u16string_view text) {
    const std::size_t first = text.find_first_not_of(u"+-");
    if (first != std::u16string_view::npos && first < 2 && (text[first] == u'i' || text[first] == u'n')) {
        const std::string word = Utf16ToUtf8(text.substr(first));
        return word == "inf" || word == "infinity" || word == "nan" ? Utf16ToUtf8(text) : std::string();
    }
    return Utf16ToUtf8(text.substr(0, text.find_first_not_of(u"+-.0123456789eE")));
}

/** The C locale, whose decimal point is a point whatever the process has set. Never freed. */
locale_t PlainLocale() noexcept {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

}  // namespace

String FloatText(float number) {
    return NumberText(number);
}

String DoubleText(double number) {
    return NumberText(number);
}

String LLongText(int64_t number) {
    return NumberText(number);
}

String ULLongText(uint64_t number) {
    return NumberText(number);
}

String BooleanText(bool content) {
    return String(content ? "true" : "false");
}

String DateText(const DateContent& date) {
    std::u16string text;
    AppendDate(date, text);
    return String(std::move(text));
}

String TimeText(const TimeContent& time) {
    std::u16string text;
    AppendTime(time, text);
    return String(std::move(text));
}

String DateTimeText(const DateTimeContent& date_time) {
    std::u16string text;
    AppendDate(date_time.date, text);
    text += u' ';
    AppendTime(date_time.time, text);
    return String(std::move(text));
}

String BytesText(std::string_view bytes) {
    constexpr char16_t kDigits[] = u"0123456789abcdef";
    std::u16string text;
    text.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return String(std::move(text));
}

std::optional<DateContent> ParseDate(const String& text) {
    FieldReader reader(text);
    const auto date = reader.Date();
    return reader.get_IsAtEnd() ? date : std::nullopt;
}

std::optional<TimeContent> ParseTime(const String& text) {
    FieldReader reader(text);
    const auto time = reader.Time();
    return reader.get_IsAtEnd() ? time : std::nullopt;
}

std::optional<DateTimeContent> ParseDateTime(const String& text) {
    FieldReader reader(text);
    const auto date = reader.Date();
    if (!date) {
        return std::nullopt;
    }
    if (reader.get_IsAtEnd()) {
        return DateTimeContent{*date, {}};
    }
    const auto time = reader.Skip(' ') || reader.Skip('T') ? reader.Time() : std::nullopt;
    if (!time || !reader.get_IsAtEnd()) {
        return std::nullopt;
    }
    return DateTimeContent{*date, *time};
}

std::optional<std::string> ParseBytes(const String& text) {
    const std::u16string_view digits = text.get_View();
    if (digits.size() % 2 != 0) {
        return std::nullopt;
    }
    // The place of a digit modulo 16 is its value, in either case.
    constexpr std::u16string_view kDigits = u"0123456789abcdef0123456789ABCDEF";
    std::string bytes;
    bytes.reserve(digits.size() / 2);
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const std::size_t high = kDigits.find(digits[i]);
        const std::size_t low = kDigits.find(digits[i + 1]);
        if (high == std::u16string_view::npos || low == std::u16string_view::npos) {
            return std::nullopt;
        }
        bytes += static_cast<char>((high % 16 << 4U) | low % 16);
    }
    return bytes;
}

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
    // Setting bit 5 makes an ASCII letter lower-case.
    const bool is_true =
        text.size() == kTrue.size() && std::equal(kTrue.begin(), kTrue.end(), text.begin(),
                                                  [](char16_t a, char16_t b) { return a == (b | 0x20); });
    return is_true || ParseDouble(text) != 0;
}

}  // namespace nbx
