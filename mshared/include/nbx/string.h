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
    Copying copies the text; a moved-from string is empty. Not for use by two threads at once when
    one of them changes it. */
class NBX_API String {
  public:
    String() noexcept = default;
    /** From narrow text of `length` bytes, or up to its terminating NUL when `length` is negative.
        A null `encoding` means UTF-8; what is not valid becomes U+FFFD. `kind` is reserved, 0. */
    explicit String(const char* text, std::ptrdiff_t length = -1, const Converter* encoding = nullptr,
                    int kind = 0);
    /** From `length` UTF-16 code units, taken as they are. */
    String(const char16_t* text, std::size_t length);
    explicit String(std::u16string text) noexcept : text_(std::move(text)) {}

    String& operator=(const char* text);
    String& operator=(const char16_t* text);

    String& operator+=(const char* text);
    String& operator<<(const String& text);
    /** Appends the number in decimal. */
    String& operator<<(uint32_t number);

    bool isEmpty() const noexcept { return text_.empty(); }
    void clear() noexcept { text_.clear(); }
    /** NUL-terminated; good until the string is changed or destroyed. */
    const char16_t* c_str() const noexcept { return text_.c_str(); }
    /** In UTF-16 code units, without the terminator. */
    std::size_t get_Length() const noexcept { return text_.size(); }
    std::u16string_view get_View() const noexcept { return text_; }
    /** The number that the text starts with (blanks and a sign before it are allowed), clamped to the
        range of the type; 0 when it starts with none. */
    int64_t parseLLong() const noexcept;

    /** The shared empty string. */
    static const String& sEmpty() noexcept;

    friend bool operator==(const String& a, const String& b) noexcept { return a.text_ == b.text_; }
    /** Orders by code units. */
    friend bool operator<(const String& a, const String& b) noexcept { return a.text_ < b.text_; }

  private:
    std::u16string text_;
};

/** Converts between narrow text of one encoding and UTF-16. Never throws for malformed input: what
    does not convert becomes U+FFFD, and nothing is cut off. */
class NBX_API Converter {
  public:
    virtual ~Converter();
    virtual std::u16string ToUTF16(std::string_view text) const = 0;
    virtual std::string FromUTF16(std::u16string_view text) const = 0;
};

/** The process-wide UTF-8 converter. Thread-safe. */
NBX_API const Converter* GetConverter_UTF8() noexcept;

/** Narrow text as UTF-16, held for as long as this object lives. */
class NBX_API StToUTF16 {
  public:
    StToUTF16(const char* text, std::ptrdiff_t length, const Converter* converter);
    const char16_t* c_str() const noexcept { return text_.c_str(); }
    std::size_t get_Length() const noexcept { return text_.size(); }
    /** Gives the text up to the caller. */
    std::u16string Take() noexcept { return std::move(text_); }

  private:
    std::u16string text_;
};

/** A string as narrow text, held for as long as this object lives. */
class NBX_API StFromUTF16 {
  public:
    StFromUTF16(const String& text, const Converter* converter);
    const char* c_str() const noexcept { return text_.c_str(); }
    /** In bytes, without the terminator. */
    std::size_t get_Length() const noexcept { return text_.size(); }
    std::string_view get_View() const noexcept { return text_; }
    std::string Take() noexcept { return std::move(text_); }

  private:
    std::string text_;
};

/** The text made safe between the single quotes of a SQL string literal: each single quote doubled
    (https://duckdb.org/docs/stable/sql/data_types/literal_types). */
NBX_API String EscapeStringU(const char16_t* text, std::size_t length);

}  // namespace nbx
