#pragma once

#include <string>

#include "nbx/string.h"

namespace nbx {

/** The bytes of a path for the system. Throws `xException` (`kLocationErrorCode`) for a text with a NUL in it
    or with a lone surrogate: cut, or with a character replaced, it would name another file. */
std::string NativePath(const String& path);

}  // namespace nbx
