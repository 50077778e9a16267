#include "duckdb_internals/decimal_double.h"

#include <duckdb/common/types/hugeint.hpp>

#include "duckdb_internals/version_differences.h"

namespace mduckdb {

namespace {

constexpr double kDoublePowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                                         1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19,
                                         1e20, 1e21, 1e22, 1e23, 1e24, 1e25, 1e26, 1e27, 1e28, 1e29,
                                         1e30, 1e31, 1e32, 1e33, 1e34, 1e35, 1e36, 1e37, 1e38};

/** Whether DuckDB divides the number as a double, which rounds once. */
bool IsDivided(int64_t number, uint8_t scale) noexcept {
    constexpr int64_t kLargestExact = int64_t{1} << 53;
    return number >= -kLargestExact && number <= kLargestExact && scale <= version::kMostDividedScale;
}

}  // namespace

double DecimalToDouble(int64_t number, uint8_t scale) {
    const double power = kDoublePowersOfTen[scale];
    return IsDivided(number, scale) ? static_cast<double>(number) / power
                                    : version::RoundDecimal(number, scale, power);
}

double WideDecimalToDouble(duckdb_hugeint number, uint8_t scale) {
    const duckdb::hugeint_t wide(number.upper, number.lower);
    const double power = kDoublePowersOfTen[scale];
    int64_t narrow = 0;
    return duckdb::Hugeint::TryCast(wide, narrow) && IsDivided(narrow, scale)
               ? static_cast<double>(narrow) / power
               : version::RoundDecimal(wide, scale, power);
}

}  // namespace mduckdb
