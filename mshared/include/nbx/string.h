#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "nbx/export.h"

namespace nbx {

class Converter;

/** The host's text: UTF-16 code units, which may include NUL characters and lone surrogates.

    Copying copies the text; a moved-from string is empty. Operations that allocate throw `std::bad_alloc`.
    Several threads may read a string at once; a thread that changes it must be the only one that uses it. */
class NBX_API String {
  public:
    String() noexcept = default;
    /** From narrow text of `length` bytes, or up to its terminating NUL when `length` is negative.
        A null `encoding` means UTF-8; what is not valid becomes U+FFFD. `kind` is reserved, 0. */
    explicit String(const char* text, std::ptrdiff_t length = -1, const Converter* encoding = nullptr,
                    int kind = 0);
    /** From `length` UTF-16 code units, unchanged; a null `text` becomes the empty string. */
    String(const char16_t* text, std::size_t length);
    explicit String(std::u16string text) noexcept : text_(std::move(text)) {}

    /** Assigns NUL-terminated UTF-8 or UTF-16; null clears the string. */
    String& operator=(const char* text);
    String& operator=(const char16_t* text);

    /** Appends NUL-terminated UTF-8; null appends nothing. */
    String& operator+=(const char* text);
    String& operator<<(const String& text);
    /** Appends the number in decimal. */
    String& operator<<(uint32_t number);

    bool isEmpty() const noexcept { return text_.empty(); }
    void clear() noexcept { text_.clear(); }
    /** NUL-terminated and never null; valid until the string is changed or destroyed. */
    const char16_t* c_str() const noexcept { return text_.c_str(); }
    /** In UTF-16 code units, without the terminator. */
    std::size_t get_Length() const noexcept { return text_.size(); }
    /** The whole text, NUL characters included; valid as long as `c_str`. */
    std::u16string_view get_View() const noexcept { return text_; }
    /** The decimal number that the text starts with, clamped to the range of the type; 0 if there is none.
        Blanks and a sign may precede it. */
    int64_t parseLLong() const noexcept;

    /** The shared empty string, which lives as long as the process. */
    static const String& sEmpty() noexcept;

    friend bool operator==(const String& a, const String& b) noexcept { return a.text_ == b.text_; }
    /** Orders by code units. */
    friend bool operator<(const String& a, const String& b) noexcept { return a.text_ < b.text_; }

  private:
    std::u16string text_;
};

/** Converts between narrow text of one encoding and UTF-16. Malformed input is not an error: whatever cannot
    be converted becomes U+FFFD, and the rest is kept. NUL characters are characters like any other.
    Conversions throw `std::bad_alloc` only. */
class NBX_API Converter {
  public:
    virtual ~Converter();
    virtual std::u16string ToUTF16(std::string_view text) const = 0;
    virtual std::string FromUTF16(std::u16string_view text) const = 0;
};

/** The process-wide UTF-8 converter: never null, usable from any thread, never destroyed. */
NBX_API const Converter* GetConverter_UTF8() noexcept;

/** Narrow text converted to UTF-16, owned by this object. */
class NBX_API StToUTF16 {
  public:
    /** A negative `length` means up to the terminating NUL; null is the empty text. A null `converter` means
        UTF-8. */
    StToUTF16(const char* text, std::ptrdiff_t length, const Converter* converter);
    const char16_t* c_str() const noexcept { return text_.c_str(); }
    /** In UTF-16 code units, without the terminator. */
    std::size_t get_Length() const noexcept { return text_.size(); }
    /** Moves the text to the caller; call it once, as the last operation. */
    std::u16string Take() noexcept { return std::move(text_); }

  private:
    std::u16string text_;
};

/** A string converted to narrow text, owned by this object. */
class NBX_API StFromUTF16 {
  public:
    /** A null `converter` means UTF-8. */
    StFromUTF16(const String& text, const Converter* converter);
    const char* c_str() const noexcept { return text_.c_str(); }
    /** In bytes, without the terminator. */
    std::size_t get_Length() const noexcept { return text_.size(); }
    std::string_view get_View() const noexcept { return text_; }
    /** Moves the text to the caller; call it once, as the last operation. */
    std::string Take() noexcept { return std::move(text_); }

  private:
    std::string text_;
};

/** The string as UTF-8; each lone surrogate becomes U+FFFD. */
inline std::string ToUtf8(const String& text) {
    return StFromUTF16(text, GetConverter_UTF8()).Take();
}

/** UTF-8 as a string; what is not valid becomes U+FFFD. */
inline String FromUtf8(std::string_view text) {
    return String(GetConverter_UTF8()->ToUTF16(text));
}

/** Returns the text for use between the single quotes of a SQL string literal: each single quote is doubled.
    `length` is in UTF-16 code units; nothing else is changed, so NUL characters stay
    (https://duckdb.org/docs/stable/sql/data_types/literal_types). */
NBX_API String EscapeStringU(const char16_t* text, std::size_t length);

}  // namespace nbx
