#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <string>

#include "nbx/export.h"
#include "nbx/string.h"

namespace nbx {

/** The system refused a file or folder operation. Text 0 is the path, text 1 what failed and why. */
constexpr uint32_t kFileErrorCode = 0x66001;
/** A location cannot be used for the operation. Text 0 is usually the path. */
constexpr uint32_t kLocationErrorCode = 0x66002;
/** An attempt to set a value that is not nullable to null. Text 0 names the type code. */
constexpr uint32_t kValueNotNullableCode = 0x41001;
/** A content that the value's type cannot hold, such as text in a date that is not a date. Text 0 names the
    type code, text 2 is the content. */
constexpr uint32_t kValueContentCode = 0x41002;

/** Root of the host's exceptions: an error code and up to four texts, each of which may be missing.

    Exceptions are thrown by value and caught by reference. An exception owns copies of its texts. Narrow
    texts are NUL-terminated UTF-8, wide ones NUL-terminated UTF-16; null stands for a missing text.
    Constructors and copying throw `std::bad_alloc`. */
class NBX_API xException : public std::exception {
  public:
    static constexpr std::size_t kTextCount = 4;

    explicit xException(uint32_t code, const char* text1 = nullptr, const char* text2 = nullptr,
                        const char* text3 = nullptr, const char* text4 = nullptr);
    xException(const xException&);
    xException& operator=(const xException&);
    ~xException() override;

    /** The host's error code. */
    uint32_t get_Code() const noexcept { return code_; }
    /** Text number `index`, counted from 0; empty if it is missing or there is no such number. The reference
        is valid as long as the exception. */
    const String& get_Text(std::size_t index) const noexcept;
    /** The code in hexadecimal and the texts that are not empty, separated by ": ", as UTF-8. Valid as long
        as the exception. */
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

/** An error that concerns a database as a whole, such as a missing location. */
class NBX_API xDBError : public xException {
  public:
    explicit xDBError(uint32_t code, const char16_t* text1 = nullptr, const char16_t* text2 = nullptr,
                      const char16_t* text3 = nullptr, const char16_t* text4 = nullptr)
        : xException(code, text1, text2, text3, text4) {}
};

/** The operation is a feature that is not supported. */
class NBX_API xFeatureError : public xException {
  public:
    using xException::xException;
};

/** The operation was cancelled by `I_DuckDBDatabase::Interrupt`. */
class NBX_API xInterruptError : public xException {
  public:
    explicit xInterruptError(uint32_t code, const char16_t* text1 = nullptr, const char16_t* text2 = nullptr,
                             const char16_t* text3 = nullptr, const char16_t* text4 = nullptr)
        : xException(code, text1, text2, text3, text4) {}
};

namespace mrsql {

/** Base of the exceptions of the host's SQL layer; this library throws derived classes only. */
class NBX_API xMRSQLException : public xException {
  protected:
    using xException::xException;
};

/** An error reported by DuckDB, or a wrong use of a DuckDB object. Text 0 is the path of the database
    ("unknown" if the object has lost its database, "value" for a host value that cannot be bound), text 1
    the message. */
class NBX_API xDuckDBError : public xMRSQLException {
  public:
    explicit xDuckDBError(uint32_t code, const char* text1 = nullptr, const char* text2 = nullptr,
                          const char* text3 = nullptr, const char* text4 = nullptr)
        : xMRSQLException(code, text1, text2, text3, text4) {}
    xDuckDBError(uint32_t code, const char16_t* text1, const char16_t* text2 = nullptr,
                 const char16_t* text3 = nullptr, const char16_t* text4 = nullptr)
        : xMRSQLException(code, text1, text2, text3, text4) {}

    /** The references are valid as long as the exception. */
    const String& get_DatabasePath() const noexcept { return get_Text(0); }
    const String& get_Message() const noexcept { return get_Text(1); }
};

}  // namespace mrsql
}  // namespace nbx
