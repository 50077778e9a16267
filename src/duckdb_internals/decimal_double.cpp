#include "duckdb_internals/decimal_double.h"

#include <duckdb/common/types/hugeint.hpp>

#include "duckdb_internals/powers_of_ten.h"

namespace mduckdb {

namespace {

constexpr double kDoublePowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                                         1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19,
                                         1e20, 1e21, 1e22, 1e23, 1e24, 1e25, 1e26, 1e27, 1e28, 1e29,
                                         1e30, 1e31, 1e32, 1e33, 1e34, 1e35, 1e36, 1e37, 1e38};

bool IsExactDouble(int64_t number) noexcept {
    constexpr int64_t kLargestExact = int64_t{1} << 53;
    return number >= -kLargestExact && number <= kLargestExact;
}

}  // namespace

double DecimalToDouble(int64_t number, uint8_t scale) noexcept {
    if (IsExactDouble(number) || scale == 0) {
        return static_cast<double>(number) / kDoublePowersOfTen[scale];
    }
    const int64_t power = kPowersOfTen<int64_t>[scale];
    const int64_t whole = number / power;
    return static_cast<double>(whole) + static_cast<double>(number % power) / kDoublePowersOfTen[scale];
}

double WideDecimalToDouble(duckdb_hugeint number, uint8_t scale) {
    const duckdb::hugeint_t wide(number.upper, number.lower);
    int64_t narrow = 0;
    if (duckdb::Hugeint::TryCast(wide, narrow) && IsExactDouble(narrow)) {
        return static_cast<double>(narrow) / kDoublePowersOfTen[scale];
    }
    if (scale == 0) {
        return duckdb::Hugeint::Cast<double>(wide);
    }
    duckdb::hugeint_t rest;
    const duckdb::hugeint_t whole =
        duckdb::Hugeint::DivMod(wide, duckdb::Hugeint::POWERS_OF_TEN[scale], rest);
    return duckdb::Hugeint::Cast<double>(whole) +
           duckdb::Hugeint::Cast<double>(rest) / kDoublePowersOfTen[scale];
}

}  // namespace mduckdb
