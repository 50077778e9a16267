#pragma once

#include <string>
#include <string_view>

namespace nbx {

/** Well-formed text converts exactly. Each longest piece that could still have begun a character becomes
    one U+FFFD, as in the web's UTF-8 decoder, so that damaged text keeps all of its intact characters. */
std::u16string Utf8ToUtf16(std::string_view text);

/** Each surrogate without its partner becomes one U+FFFD. */
std::string Utf16ToUtf8(std::u16string_view text);

/** The result of `Utf8ToUtf16` for callers that copy it at once: a short text is converted without
    allocating. */
class Utf16Text {
  public:
    explicit Utf16Text(std::string_view utf8);
    Utf16Text(const Utf16Text&) = delete;
    Utf16Text& operator=(const Utf16Text&) = delete;

    /** Valid as long as this object. */
    std::u16string_view get() const noexcept { return view_; }

  private:
    // Not zeroed: most texts are a few characters.
    char16_t buffer_[528];
    std::u16string long_text_;
    std::u16string_view view_;
};

/** Appends to texts that exist already; otherwise like the two above. */
void AppendUtf8AsUtf16(std::string_view text, std::u16string& result);
void AppendUtf16AsUtf8(std::u16string_view text, std::string& result);

}  // namespace nbx
