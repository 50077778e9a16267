#pragma once

#include <string>

#include "nbx/value.h"

namespace nbx {

/** Appends the value as JSON (UTF-8): numbers and booleans as such, JSON values as they are, everything
    else as text; NULL and a null pointer as null. What JSON has no number for (infinities and NaN) and a
    JSON value that is malformed become text, so that the result is JSON whatever the value. */
void AppendValueJson(I_Value* value, std::string& result);

/** Appends the elements as a JSON array. */
void AppendArrayJson(const I_ArrayValue& array, std::string& result);

}  // namespace nbx
