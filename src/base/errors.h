#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/error_facts.h"
#include "nbx/exception.h"
#include "nbx/mrsql/duckdb_error.h"
#include "nbx/string.h"

namespace mduckdb {

using nbx::mrsql::DuckDBErrorInfo;
using nbx::mrsql::ReadDuckDBError;

/** Every DuckDB failure and every wrong use of a database, statement or cursor (`xDuckDBError`). */
constexpr uint32_t kDuckDBErrorCode = 0x72501;
/** A database file that cannot be opened, or a connection that cannot be made (`xException`). */
constexpr uint32_t kOpenErrorCode = 0x99000;
/** A failure that follows `Interrupt` (`xInterruptError`). */
constexpr uint32_t kInterruptErrorCode = 0x57501;
/** Any other failure of an execution that reports errors instead of throwing them. */
constexpr uint32_t kUnexpectedErrorCode = 0x72000;
/** No database location (`xDBError`). */
constexpr uint32_t kNoDatabaseLocationCode = 0x51501;
/** No backup location (`xDBError`). */
constexpr uint32_t kNoBackupLocationCode = 0x66000;

/** DuckDB's text when there is one, otherwise the fixed text. Copies: the owner may be destroyed. */
std::string TextOr(const char* duckdb_text, const char* fixed_text);

/** Throws `xDuckDBError` with the database's path and a UTF-8 message. */
[[noreturn]] void ThrowDuckDBError(const nbx::String& path, std::string_view message);
/** The same with the facts of DuckDB's error. */
[[noreturn]] void ThrowDuckDBError(const nbx::String& path, const Failure& failure);
/** The same for objects that have no database: its path is "unknown". */
[[noreturn]] void ThrowDetachedError(std::string_view message);
/** What errors of values carry that do not name the value's kind. */
inline constexpr const char* kValueName = "value";
/** The same for a value, which has no database: the error carries `name` instead of a path. */
[[noreturn]] void ThrowValueError(const char* name, const std::string& message);
[[noreturn]] void ThrowValueError(const char* name, const Failure& failure);
/** Throws `xException` for a database that cannot be opened. */
[[noreturn]] void ThrowOpenError(const Failure& failure);
/** Throws `xInterruptError`. */
[[noreturn]] void ThrowInterrupted();

}  // namespace mduckdb
