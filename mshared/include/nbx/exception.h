#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <string>

#include "nbx/export.h"
#include "nbx/string.h"

namespace nbx {

/** A file or folder operation that the system refused: path, what was tried and why. */
constexpr uint32_t kFileErrorCode = 0x66001;
/** A location that cannot be used as asked. */
constexpr uint32_t kLocationErrorCode = 0x66002;
/** Setting a value to null that may not be null. */
constexpr uint32_t kValueNotNullableCode = 0x41001;
/** Storing a content that the value's type cannot hold, such as a text that is no date in a date. */
constexpr uint32_t kValueContentCode = 0x41002;

/** Root of the host's exceptions: an error code and up to four texts, which may be missing.
    Thrown by value, caught by reference, copyable. */
class NBX_API xException : public std::exception {
  public:
    static constexpr std::size_t kTextCount = 4;

    explicit xException(uint32_t code, const char* text1 = nullptr, const char* text2 = nullptr,
                        const char* text3 = nullptr, const char* text4 = nullptr);
    xException(const xException&);
    xException& operator=(const xException&);
    ~xException() override;

    uint32_t get_Code() const noexcept { return code_; }
    /** Text number `index`, counted from 0; empty when it was not given. */
    const String& get_Text(std::size_t index) const noexcept;
    /** The code in hexadecimal and the texts, as UTF-8. */
    const char* what() const noexcept override { return what_.c_str(); }

  protected:
    xException(uint32_t code, const char16_t* text1, const char16_t* text2, const char16_t* text3,
               const char16_t* text4);

  private:
    void BuildWhat();

    uint32_t code_;
    std::array<String, kTextCount> texts_;
    std::string what_;
};

/** An error of a database as a whole. */
class NBX_API xDBError : public xException {
  public:
    explicit xDBError(uint32_t code, const char16_t* text1 = nullptr, const char16_t* text2 = nullptr,
                      const char16_t* text3 = nullptr, const char16_t* text4 = nullptr)
        : xException(code, text1, text2, text3, text4) {}
};

/** A feature that is not supported. */
class NBX_API xFeatureError : public xException {
  public:
    using xException::xException;
};

/** An operation that was cancelled. */
class NBX_API xInterruptError : public xException {
  public:
    explicit xInterruptError(uint32_t code, const char16_t* text1 = nullptr, const char16_t* text2 = nullptr,
                             const char16_t* text3 = nullptr, const char16_t* text4 = nullptr)
        : xException(code, text1, text2, text3, text4) {}
};

namespace mrsql {

/** Base of the exceptions of the host's SQL layer. */
class NBX_API xMRSQLException : public xException {
  protected:
    using xException::xException;
};

/** An error reported by DuckDB, or a wrong use of a DuckDB object. Text 0 is the path of the database
    ("unknown" when there is none), text 1 the message. */
class NBX_API xDuckDBError : public xMRSQLException {
  public:
    explicit xDuckDBError(uint32_t code, const char* text1 = nullptr, const char* text2 = nullptr,
                          const char* text3 = nullptr, const char* text4 = nullptr)
        : xMRSQLException(code, text1, text2, text3, text4) {}
    xDuckDBError(uint32_t code, const char16_t* text1, const char16_t* text2 = nullptr,
                 const char16_t* text3 = nullptr, const char16_t* text4 = nullptr)
        : xMRSQLException(code, text1, text2, text3, text4) {}

    const String& get_DatabasePath() const noexcept { return get_Text(0); }
    const String& get_Message() const noexcept { return get_Text(1); }
};

}  // namespace mrsql
}  // namespace nbx
