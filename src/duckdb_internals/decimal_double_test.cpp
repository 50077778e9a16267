#include "duckdb_internals/decimal_double.h"

#include <gtest/gtest.h>

#include <limits>

#include "base/holders.h"

namespace mduckdb {
namespace {

/** The double that DuckDB's own cast returns. */
double StockDouble(uint8_t width, uint8_t scale, duckdb_hugeint number) {
    ValueHolder value(duckdb_create_decimal({width, scale, number}));
    return duckdb_get_double(value.get());
}

duckdb_hugeint Widen(int64_t number) {
    return {static_cast<uint64_t>(number), number < 0 ? -1 : 0};
}

constexpr int64_t kInteresting[] = {0,
                                    1,
                                    -1,
                                    3,
                                    10,
                                    999,
                                    123'456'789,
                                    9'007'199'254'740'991,
                                    9'007'199'254'740'992,
                                    9'007'199'254'740'993,
                                    -9'007'199'254'740'993,
                                    123'456'789'012'345'678,
                                    999'999'999'999'999'999,
                                    -999'999'999'999'999'999};

TEST(DecimalDouble, NarrowNumbersAreTheDoublesOfDuckDBsCast) {
    for (const int64_t number : kInteresting) {
        for (uint8_t scale = 0; scale <= 18; ++scale) {
            EXPECT_EQ(DecimalToDouble(number, scale), StockDouble(18, scale, Widen(number)))
                << number << " scale " << int{scale};
        }
    }
}

TEST(DecimalDouble, WideNumbersAreTheDoublesOfDuckDBsCast) {
    const duckdb_hugeint wide[] = {{0, 1},
                                   {~uint64_t{0}, 0},
                                   {0, -1},
                                   {12345678901234567890U, 1234567890123},
                                   {0x098A223FFFFFFFFF, 0x4B3B4CA85A86C47A}};
    for (uint8_t scale = 0; scale <= 38; ++scale) {
        for (const duckdb_hugeint number : wide) {
            EXPECT_EQ(WideDecimalToDouble(number, scale), StockDouble(38, scale, number))
                << number.upper << " " << number.lower << " scale " << int{scale};
        }
        for (const int64_t number : kInteresting) {
            EXPECT_EQ(WideDecimalToDouble(Widen(number), scale), StockDouble(38, scale, Widen(number)))
                << number << " scale " << int{scale};
        }
    }
}

}  // namespace
}  // namespace mduckdb
