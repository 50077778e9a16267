#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "nbx/string.h"
#include "nbx/value.h"

namespace nbx {

/** The texts of values, as `I_Value::get_Text` returns them. Floats have the fewest digits that restore the
    number, or are "inf", "-inf", "nan". */
String FloatText(float number);
String DoubleText(double number);
String LLongText(int64_t number);
String ULLongText(uint64_t number);
String BooleanText(bool content);
/** 2024-01-31, 12:34:56.789, and both with a blank between them. */
String DateText(const DateContent& date);
String TimeText(const TimeContent& time);
String DateTimeText(const DateTimeContent& date_time);
/** Two hexadecimal digits for each byte. */
String BytesText(std::string_view bytes);

/** The opposite direction; nothing if the whole text does not have that form. A time may end after the
    minutes or seconds, a date-time after the date. Ranges are those of the fields: February 31 is
    accepted. */
std::optional<DateContent> ParseDate(const String& text);
std::optional<TimeContent> ParseTime(const String& text);
std::optional<DateTimeContent> ParseDateTime(const String& text);
std::optional<std::string> ParseBytes(const String& text);

/** The number that a text starts with, after blanks and a sign, clamped to the range of the type; 0 if there
    is none. Independent of the process's locale. */
int64_t ParseLLong(std::u16string_view text) noexcept;
/** The same; negative numbers become 0. */
uint64_t ParseULLong(std::u16string_view text) noexcept;
/** The same; numbers that are too large become infinite, and "inf" and "nan" are numbers too. */
double ParseDouble(std::u16string_view text);
/** Whether the text is "true" in any case, or starts with a number other than 0. */
bool ParseBoolean(std::u16string_view text);

}  // namespace nbx
