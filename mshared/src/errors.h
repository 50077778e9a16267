#pragma once

#include <cstdint>
#include <string>

#include "nbx/string.h"

/** The exceptions that several parts of the library throw, so that each has its texts in one place. Each
    function throws an `xException`. */
namespace nbx {

/** A file operation that the system refused (`kFileErrorCode`). Text 0 is the path (UTF-8), text 1 is
    "Cannot", the operation and the system's text for `error_number`, a value of `errno`. */
[[noreturn]] void ThrowFileError(const std::string& path, const char* operation, int error_number);

/** An attempt to set a value to null that is not nullable (`kValueNotNullableCode`). */
[[noreturn]] void ThrowNotNullable(uint32_t type_code);

/** A text that the value's type cannot hold (`kValueContentCode`); text 2 is that text. */
[[noreturn]] void ThrowBadContent(uint32_t type_code, const String& content);

}  // namespace nbx
