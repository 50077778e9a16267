#pragma once

#include <string>

namespace nbx {

/** Throws the `xException` of a failed file operation: text 0 is the path, text 1 what was tried and the
    system's text for `error_number`. */
[[noreturn]] void ThrowFileError(const std::string& path, const char* operation, int error_number);

}  // namespace nbx
