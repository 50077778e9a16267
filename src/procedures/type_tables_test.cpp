#include "procedures/type_tables.h"

#include <duckdb.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace mduckdb {
namespace {

constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();

TEST(DuckDBTypeName, IsTheEnumerationNameOfEveryCodeFrom0To39) {
    const std::vector<std::string> names{"INVALID",
                                         "BOOLEAN",
                                         "TINYINT",
                                         "SMALLINT",
                                         "INTEGER",
                                         "BIGINT",
                                         "UTINYINT",
                                         "USMALLINT",
                                         "UINTEGER",
                                         "UBIGINT",
                                         "FLOAT",
                                         "DOUBLE",
                                         "TIMESTAMP",
                                         "DATE",
                                         "TIME",
                                         "INTERVAL",
                                         "HUGEINT",
                                         "VARCHAR",
                                         "BLOB",
                                         "DECIMAL",
                                         "TIMESTAMP_S",
                                         "TIMESTAMP_MS",
                                         "TIMESTAMP_NS",
                                         "ENUM",
                                         "LIST",
                                         "STRUCT",
                                         "MAP",
                                         "UUID",
                                         "UNION",
                                         "BIT",
                                         "TIME_TZ",
                                         "TIMESTAMP_TZ",
                                         "UHUGEINT",
                                         "ARRAY",
                                         "ANY",
                                         "BIGNUM",
                                         "SQLNULL",
                                         "STRING_LITERAL",
                                         "INTEGER_LITERAL",
                                         "TIME_NS"};
    ASSERT_EQ(40u, names.size());
    for (std::int32_t code = 0; code < 40; ++code) {
        EXPECT_EQ(names[static_cast<std::size_t>(code)], DuckDBTypeName(code));
    }
}

TEST(DuckDBTypeName, IsUnknownForEveryOtherCode) {
    for (const std::int32_t code : {40, 41, 42, -1, kSmallest, kLargest}) {
        EXPECT_STREQ("UNKNOWN", DuckDBTypeName(code));
    }
}

TEST(NormalizeDuckDBType, KeepsTheSixteenTypesThatTheHostKnows) {
    for (std::int32_t code = 1; code <= 14; ++code) {
        EXPECT_EQ(code, NormalizeDuckDBType(code));
    }
    EXPECT_EQ(17, NormalizeDuckDBType(17));
    EXPECT_EQ(18, NormalizeDuckDBType(18));
}

TEST(NormalizeDuckDBType, MapsDecimalsTimestampsAndTimesToTheirPlainKind) {
    EXPECT_EQ(11, NormalizeDuckDBType(19));
    for (const std::int32_t code : {20, 21, 22, 31}) {
        EXPECT_EQ(12, NormalizeDuckDBType(code));
    }
    EXPECT_EQ(14, NormalizeDuckDBType(30));
    EXPECT_EQ(14, NormalizeDuckDBType(39));
}

TEST(NormalizeDuckDBType, MapsEverythingElseToText) {
    for (const std::int32_t code : {0,  15, 16, 23, 24, 25, 26, 27, 28, 29,        32,      33,
                                    34, 35, 36, 37, 38, 40, 41, 42, -1, kSmallest, kLargest}) {
        EXPECT_EQ(17, NormalizeDuckDBType(code)) << code;
    }
}

TEST(HostTypeOfDuckDBType, FollowsTheKindOfTheType) {
    const std::vector<std::int32_t> expected{10, 2, 7, 7, 7,  7,  12, 12, 12, 12,
                                             6,  6, 5, 4, 11, 10, 10, 10, 3,  10};
    for (std::size_t code = 0; code < expected.size(); ++code) {
        EXPECT_EQ(expected[code], HostTypeOfDuckDBType(static_cast<std::int32_t>(code))) << code;
    }
    for (const std::int32_t code : {-1, 39, 41, kSmallest, kLargest}) {
        EXPECT_EQ(10, HostTypeOfDuckDBType(code));
    }
}

TEST(HostTypeName, KnowsTheHostsWholeRange) {
    const std::vector<std::string> names{"unknown", "array", "bool", "binary", "date", "datetime", "double",
                                         "int64",   "money", "null", "text",   "time", "uint64",   "variant"};
    for (std::size_t code = 0; code < names.size(); ++code) {
        EXPECT_EQ(names[code], HostTypeName(static_cast<std::int32_t>(code)));
    }
    for (const std::int32_t code : {14, -1, kSmallest, kLargest}) {
        EXPECT_STREQ("unknown", HostTypeName(code));
    }
}

TEST(CellStorage, AgreesWithDuckDBAboutStrings) {
    for (const std::int32_t code : {17, 18, 29, 35, 40}) {
        EXPECT_TRUE(GetCellStorage(code).is_string) << code;
    }
    for (const std::int32_t code : {15, 16, 19, 23, 24, 25, 26, 27, 28, 32, 33, 36, 41, 42, -1}) {
        EXPECT_FALSE(GetCellStorage(code).is_string) << code;
    }
}

}  // namespace
}  // namespace mduckdb
