#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "nbx/export.h"
#include "nbx/value.h"

namespace nbx {

/** What a Boolean, a number or a text holds, read where it is. */
struct ContentInPlace {
    /** As `I_Value::get_TypeCode` and `get_IsNull` return them. */
    uint32_t type_code;
    bool is_null;
    /** Of the C type that the factories of values receive for the type; null for a text. Those without
        a factory: `int32_t` and `uint32_t` for Medium and UMedium, `double` for LDouble and Currency,
       `uint8_t` and `uint16_t` for Enum8 and Enum16. */
    const void* number;
    std::u16string_view text;
};

/** The content of a Boolean, number or text value without a call for each of its parts and without the copy
    that `get_Text` makes; zero or empty for a null value. Valid until the value is changed or destroyed.
    Nothing for values of other classes, such as those of a host. */
NBX_API std::optional<ContentInPlace> GetContentInPlace(const I_Value& value) noexcept;

}  // namespace nbx
