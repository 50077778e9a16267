#include "nbx/exception.h"

#include <cstdio>
#include <system_error>

#include "errors.h"
#include "unicode.h"

namespace nbx {
namespace {

std::string TypeText(uint32_t type_code) {
    return "type " + std::to_string(type_code);
}

}  // namespace

xException::xException(uint32_t code, const char* text1, const char* text2, const char* text3,
                       const char* text4)
    : code_(code), texts_{String(text1), String(text2), String(text3), String(text4)} {
    BuildWhat();
}

xException::xException(uint32_t code, const char16_t* text1, const char16_t* text2, const char16_t* text3,
                       const char16_t* text4)
    : code_(code) {
    // Assigned, since a string has no constructor from NUL-terminated wide text.
    texts_[0] = text1;
    texts_[1] = text2;
    texts_[2] = text3;
    texts_[3] = text4;
    BuildWhat();
}

// Out of line, so that the class has its only vtable and type information here.
xException::xException(const xException&) = default;
xException& xException::operator=(const xException&) = default;
xException::~xException() = default;

const String& xException::get_Text(std::size_t index) const noexcept {
    return index < texts_.size() ? texts_[index] : String::sEmpty();
}

/** Builds the text at construction, because `what` must not throw and so cannot allocate. */
void xException::BuildWhat() {
    char code[16];
    const int length = std::snprintf(code, sizeof code, "0x%X", static_cast<unsigned>(code_));
    what_.assign(code, static_cast<std::size_t>(length));
    for (const String& text : texts_) {
        if (!text.isEmpty()) {
            what_ += ": ";
            what_ += StFromUTF16(text, nullptr).get_View();
        }
    }
}

void ThrowFileError(const std::string& path, const char* operation, int error_number) {
    const std::string text =
        std::string("Cannot ") + operation + ": " + std::generic_category().message(error_number);
    throw xException(kFileErrorCode, path.c_str(), text.c_str());
}

void ThrowNotNullable(uint32_t type_code) {
    throw xException(kValueNotNullableCode, TypeText(type_code).c_str(), "The value cannot be null");
}

void ThrowBadContent(uint32_t type_code, const String& content) {
    throw xException(kValueContentCode, TypeText(type_code).c_str(), "The value cannot hold this content",
                     Utf16ToUtf8(content.get_View()).c_str());
}

}  // namespace nbx
