#include "nbx/string.h"

#include <charconv>
#include <cstring>
#include <utility>

#include "immortal.h"
#include "unicode.h"
#include "value_text.h"

namespace nbx {
namespace {

/** The text that a pointer and a length describe, by the rules of `String`'s constructor. */
std::string_view NarrowView(const char* text, std::ptrdiff_t length) noexcept {
    if (text == nullptr) {
        return {};
    }
    return {text, length < 0 ? std::strlen(text) : static_cast<std::size_t>(length)};
}

std::u16string ToUTF16(std::string_view text, const Converter* converter) {
    return converter == nullptr ? Utf8ToUtf16(text) : converter->ToUTF16(text);
}

class Utf8Converter final : public Converter {
  public:
    std::u16string ToUTF16(std::string_view text) const override { return Utf8ToUtf16(text); }
    std::string FromUTF16(std::u16string_view text) const override { return Utf16ToUtf8(text); }
};

}  // namespace

String::String(const char* text, std::ptrdiff_t length, const Converter* encoding, int /*kind*/)
    : text_(ToUTF16(NarrowView(text, length), encoding)) {}

String::String(const char16_t* text, std::size_t length)
    : text_(text != nullptr ? std::u16string(text, length) : std::u16string()) {}

String& String::operator=(const char* text) {
    // Converted before the old text is released: `text` may be a part of it.
    text_ = Utf8ToUtf16(NarrowView(text, -1));
    return *this;
}

String& String::operator=(const char16_t* text) {
    if (text == nullptr) {
        text_.clear();
    } else {
        text_ = text;
    }
    return *this;
}

String& String::operator+=(const char* text) {
    AppendUtf8AsUtf16(NarrowView(text, -1), text_);
    return *this;
}

String& String::operator<<(const String& text) {
    text_ += text.text_;
    return *this;
}

String& String::operator<<(uint32_t number) {
    // Enough for every number of 32 bits.
    char digits[10];
    const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    text_.append(static_cast<const char*>(digits), end);
    return *this;
}

// The same rules as for reading a text value as a number.
int64_t String::parseLLong() const noexcept {
    return ParseLLong(text_);
}

// Both live forever: objects that are destroyed at the end of the process may still refer to them.
const String& String::sEmpty() noexcept {
    return GetImmortal<String>();
}

const Converter* GetConverter_UTF8() noexcept {
    return &GetImmortal<Utf8Converter>();
}

StToUTF16::StToUTF16(const char* text, std::ptrdiff_t length, const Converter* converter)
    : text_(ToUTF16(NarrowView(text, length), converter)) {}

StFromUTF16::StFromUTF16(const String& text, const Converter* converter)
    : text_(converter == nullptr ? Utf16ToUtf8(text.get_View()) : converter->FromUTF16(text.get_View())) {}

String EscapeStringU(const char16_t* text, std::size_t length) {
    // Room for the text itself: most texts have no quotes, and others grow once.
    std::u16string escaped;
    escaped.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
        if (text[i] == u'\'') {
            escaped += u'\'';
        }
        escaped += text[i];
    }
    return String(std::move(escaped));
}

}  // namespace nbx
