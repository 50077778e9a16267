#include "procedures/packed_time.h"

#include <duckdb.h>
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "duckdb_internals/value_guard.h"

namespace mduckdb {
namespace {

/** The day split by DuckDB's own calendar, packed. */
std::uint32_t PackedByDuckDB(std::int32_t days) {
    const duckdb_date_struct date = duckdb_from_date({days});
    return static_cast<std::uint32_t>(date.year) << 9 | static_cast<std::uint32_t>(date.month) << 5 |
           static_cast<std::uint32_t>(date.day);
}

TEST(PackDays, PutsDayMonthAndYearFromTheLowestBitUp) {
    EXPECT_EQ((2024u << 9) + (3u << 5) + 15u, PackDays(19'797).packed);
    EXPECT_EQ((1970u << 9) + (1u << 5) + 1u, PackDays(0).packed);
}

TEST(PackDays, AgreesWithDuckDBsCalendar) {
    for (std::int32_t days = -800'000; days < 800'000; days += 7) {
        ASSERT_EQ(PackedByDuckDB(days), PackDays(days).packed) << days;
    }
    for (std::int32_t days = 18'000; days < 20'000; ++days) {
        ASSERT_EQ(PackedByDuckDB(days), PackDays(days).packed) << days;
    }
    std::mt19937 random(7);
    std::uniform_int_distribution<std::int32_t> any(-1'000'000'000, 1'000'000'000);
    for (int i = 0; i < 20'000; ++i) {
        const std::int32_t days = any(random);
        ASSERT_TRUE(PackDays(days).is_packable);
        ASSERT_EQ(PackedByDuckDB(days), PackDays(days).packed) << days;
    }
}

TEST(PackDays, DoesNotPackInfinitiesOrYearsThatDoNotFit) {
    constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
    for (const std::int32_t days : {kLargest, -kLargest, -kLargest - 1}) {
        EXPECT_FALSE(PackDays(days).is_packable) << days;
    }
    const std::int32_t after_last = duckdb_to_date({1 << 22, 1, 1}).days;
    EXPECT_FALSE(PackDays(after_last).is_packable);
    EXPECT_TRUE(PackDays(after_last - 1).is_packable);
    const std::int32_t first = duckdb_to_date({-(1 << 22), 1, 1}).days;
    EXPECT_FALSE(PackDays(first - 1).is_packable);
    EXPECT_TRUE(PackDays(first).is_packable);
    EXPECT_EQ(PackedByDuckDB(first), PackDays(first).packed);
}

TEST(PackMicros, PutsMillisecondsSecondMinuteAndHourFromTheLowestBitUp) {
    const std::int64_t micros = ((13 * 60 + 14) * 60 + 15) * std::int64_t{1'000'000} + 678'999;
    EXPECT_EQ((13u << 27) + (14u << 21) + (15u << 15) + 678u, PackMicros(micros));
    EXPECT_EQ(0u, PackMicros(0));
    EXPECT_EQ(24u << 27, PackMicros(kMicrosPerDay));
    EXPECT_EQ((23u << 27) + (59u << 21) + (59u << 15) + 999u, PackMicros(kMicrosPerDay - 1));
}

}  // namespace
}  // namespace mduckdb
