#include "procedures/sql_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace mduckdb {
namespace {

using ::testing::ElementsAre;

TEST(Trim, RemovesBlanksOfEveryKindAtBothEndsOnly) {
    EXPECT_EQ("a b", Trim(" \t\n\v\f\ra b \r\n"));
    EXPECT_EQ("", Trim(" \t "));
    EXPECT_EQ("", Trim(""));
    EXPECT_EQ("\xC2\xA0x", Trim("\xC2\xA0x"));
    EXPECT_EQ(std::string_view("\0", 1), Trim(std::string_view(" \0 ", 3)));
}

TEST(SplitQualifiedName, SplitsAtFullStopsOutsideQuotesAndTrims) {
    EXPECT_THAT(SplitQualifiedName("main.items"), ElementsAre("main", "items"));
    EXPECT_THAT(SplitQualifiedName(" main . items "), ElementsAre("main", "items"));
    EXPECT_THAT(SplitQualifiedName("\"a.b\".c"), ElementsAre("\"a.b\"", "c"));
    EXPECT_THAT(SplitQualifiedName("\"a\"\".\"\"b\""), ElementsAre("\"a\"\".\"\"b\""));
}

TEST(SplitQualifiedName, KeepsEmptyPartsForTheCallerToJudge) {
    EXPECT_THAT(SplitQualifiedName(""), ElementsAre(""));
    EXPECT_THAT(SplitQualifiedName("a..b"), ElementsAre("a", "", "b"));
    EXPECT_THAT(SplitQualifiedName(".a."), ElementsAre("", "a", ""));
}

TEST(SplitQualifiedName, RefusesAnOpenQuote) {
    try {
        SplitQualifiedName("main.\"items");
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ("Invalid DuckDB table or view name.", error.what());
    }
}

TEST(UnquotePart, RemovesOuterQuotesAndHalvesPairsInside) {
    EXPECT_EQ("a\"b", UnquotePart("\"a\"\"b\""));
    EXPECT_EQ("a\"b", UnquotePart("\"a\"b\""));
    EXPECT_EQ("a\"\"b", UnquotePart("\"a\"\"\"b\""));
    EXPECT_EQ("", UnquotePart("\"\""));
    EXPECT_EQ("\"", UnquotePart("\""));
    EXPECT_EQ("items", UnquotePart("items"));
    EXPECT_EQ("a\"b", UnquotePart("a\"b"));
}

TEST(SelectItem, IsTheBareColumnForTypesThatTheHostKnows) {
    for (const std::int32_t type : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 17, 18}) {
        EXPECT_EQ("\"a\"\"b\"", SelectItem("a\"b", type));
    }
}

TEST(SelectItem, CastsEveryOtherTypeAndKeepsTheName) {
    EXPECT_EQ("CAST(\"c\" AS DOUBLE) AS \"c\"", SelectItem("c", 19));
    for (const std::int32_t type : {20, 21, 22, 31}) {
        EXPECT_EQ("CAST(\"c\" AS TIMESTAMP) AS \"c\"", SelectItem("c", type));
    }
    EXPECT_EQ("CAST(\"c\" AS TIME) AS \"c\"", SelectItem("c", 30));
    EXPECT_EQ("CAST(\"c\" AS TIME) AS \"c\"", SelectItem("c", 39));
    for (const std::int32_t type : {0, 15, 16, 23, 24, 25, 26, 27, 28, 29, 32, 36, 40, 41, 99}) {
        EXPECT_EQ("CAST(\"c\" AS VARCHAR) AS \"c\"", SelectItem("c", type));
    }
}

TEST(ForgivingSelectItem, IsNullWhereTheCastFails) {
    EXPECT_EQ("TRY(CAST(\"c\" AS DOUBLE)) AS \"c\"", ForgivingSelectItem("c", 19));
    EXPECT_EQ("\"c\"", ForgivingSelectItem("c", 17));
}

TEST(WhereClause, UsesTheTrimmedConditionUnchanged) {
    EXPECT_EQ(" WHERE a = 'b'", WhereClause("  a = 'b' \n"));
    EXPECT_EQ("", WhereClause("   "));
    EXPECT_EQ("", WhereClause(""));
}

TEST(ReadParquetCall, QuotesTheUri) {
    EXPECT_EQ("read_parquet('it''s.parquet')", ReadParquetCall("it's.parquet"));
}

}  // namespace
}  // namespace mduckdb
