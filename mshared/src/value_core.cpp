#include "value_core.h"

#include "nbx/exception.h"
#include "unicode.h"

namespace nbx {
namespace {

std::string TypeText(uint32_t type_code) {
    return "type " + std::to_string(type_code);
}

}  // namespace

void ThrowNotNullable(uint32_t type_code) {
    throw xException(kValueNotNullableCode, TypeText(type_code).c_str(), "The value cannot be null");
}

void ThrowBadContent(uint32_t type_code, const String& content) {
    throw xException(kValueContentCode, TypeText(type_code).c_str(), "The value cannot hold this content",
                     Utf16ToUtf8(content.get_View()).c_str());
}

}  // namespace nbx
