#include "system_error.h"

#include <system_error>

#include "nbx/exception.h"

namespace nbx {

void ThrowFileError(const std::string& path, const char* operation, int error_number) {
    const std::string text =
        std::string("Cannot ") + operation + ": " + std::generic_category().message(error_number);
    throw xException(kFileErrorCode, path.c_str(), text.c_str());
}

}  // namespace nbx
