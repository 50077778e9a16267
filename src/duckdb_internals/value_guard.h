#pragma once

#include <duckdb.h>

#include <cstdint>
#include <vector>

namespace duckdb {
struct LogicalType;
struct hugeint_t;  // NOLINT(readability-identifier-naming): DuckDB's name
struct string_t;   // NOLINT(readability-identifier-naming): DuckDB's name
class Vector;
}  // namespace duckdb

/* Numbers that DuckDB stores in a type that does not allow them. When DuckDB reads such a value or converts
   it to text, it can throw, end the engine for all its users or end the process, so these values must not
   reach it. */
namespace mduckdb {

inline constexpr int64_t kMicrosPerDay = int64_t{24} * 60 * 60 * 1'000'000;

/** A time of day in microseconds: 0 to 24:00:00 inclusive, as in DuckDB. */
constexpr bool IsValidTime(int64_t micros) noexcept {
    return micros >= 0 && micros <= kMicrosPerDay;
}
/** A time of day in nanoseconds, 0 to 24:00:00 inclusive. */
bool IsValidTimeNs(int64_t nanos) noexcept;
/** A time of day in microseconds and an offset from UTC in seconds, within 15:59:59 either way. */
bool IsValidTimeTz(int64_t micros, int32_t offset) noexcept;
/** The same for DuckDB's packed form. */
bool IsValidTimeTzBits(uint64_t bits) noexcept;
/** Width 1 to 38, scale not above it, and no more digits than the width. */
bool IsValidDecimal(uint8_t width, uint8_t scale, duckdb_hugeint value) noexcept;
/** A number of a DECIMAL as these functions take it. */
inline duckdb_hugeint Widen(int64_t number) noexcept {
    return {static_cast<uint64_t>(number), number < 0 ? -1 : 0};
}
duckdb_hugeint Widen(const duckdb::hugeint_t& number) noexcept;
/** Whether DuckDB can convert the number to text. It also reads one with more digits than the width, which
    files of other programs contain, but cannot format one without a place before the point, nor the one that
    has no opposite. */
bool IsReadableDecimal(uint8_t width, uint8_t scale, duckdb_hugeint value) noexcept;
/** A padding byte of 0 to 7 and at least one byte of bits behind it. */
bool IsValidBit(const uint8_t* data, idx_t size) noexcept;
/** The bytes of a `duckdb_bignum`: at least one. */
bool IsValidBignum(const uint8_t* data, idx_t size) noexcept;
/** DuckDB's stored form of a BIGNUM: a header of three bytes and at least one byte of number. */
bool IsValidStoredBignum(const uint8_t* data, idx_t size) noexcept;
/** The same for what a vector holds. */
bool IsValidBit(const duckdb::string_t& stored) noexcept;
bool IsValidStoredBignum(const duckdb::string_t& stored) noexcept;

/** Whether the value, with all that it holds, can be read and converted to text. True for a null handle and
    for NULL. Failures that DuckDB reports in an ordinary way, such as an infinite date, do not count. Throws
    `std::bad_alloc`. */
bool IsReadable(duckdb_value value);

/** The VARIANTs of a flat vector that cannot be converted to text: a bit for each row, none when there are no
    such rows. */
std::vector<bool> FindUnreadableVariants(duckdb::Vector& variants, idx_t count);

/** Whether values of the type can be converted to text without looking at each of them. */
bool IsEveryValueReadable(const duckdb::LogicalType& type);

}  // namespace mduckdb
