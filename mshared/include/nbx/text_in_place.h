#pragma once

#include <optional>
#include <string_view>

#include "nbx/export.h"
#include "nbx/value.h"

namespace nbx {

/** The text of a String value where it is, without the copy that `get_Text` makes; empty for a null value.
    Valid until the value is changed or destroyed. Nothing for values of other classes, such as those of
    a host. */
NBX_API std::optional<std::u16string_view> GetTextInPlace(const I_Value& value) noexcept;

}  // namespace nbx
