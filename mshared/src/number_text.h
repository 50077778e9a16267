#pragma once

#include <cstdint>
#include <string_view>

namespace nbx {

/** The number that a text starts with, blanks and a sign allowed before it; clamped to the type's range,
    0 when there is none. Independent of the process's locale. */
int64_t ParseLLong(std::u16string_view text) noexcept;
/** Negative numbers give 0. */
uint64_t ParseULLong(std::u16string_view text) noexcept;
/** Numbers too large give an infinity; "inf" and "nan" are numbers too. */
double ParseDouble(std::u16string_view text);
/** Whether the text is "true" in any case, or starts with a number other than 0. */
bool ParseBoolean(std::u16string_view text);

}  // namespace nbx
