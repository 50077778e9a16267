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
