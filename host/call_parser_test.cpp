#include "call_parser.h"

#include <gtest/gtest.h>

#include "cell_text.h"

namespace mduckdb_host {
namespace {

std::string Parse(std::string_view arguments) {
    std::string text;
    for (const Cell& cell : ParseLiterals(arguments)) {
        AppendJson(text, cell);
        text += ' ';
    }
    return text;
}

TEST(FindCall, FindsTheProcedureAndItsArguments) {
    const auto call = FindCall("  CaLL\n fetch_parquet ( 'a' )");
    ASSERT_TRUE(call.has_value());
    EXPECT_EQ(call->procedure, "fetch_parquet");
    EXPECT_EQ(call->arguments, " 'a' )");
    EXPECT_EQ(call->arguments_start, 23U);
}

TEST(FindCall, LeavesOtherStatementsAlone) {
    EXPECT_FALSE(FindCall("SELECT 1"));
    EXPECT_FALSE(FindCall("call"));
    EXPECT_FALSE(FindCall("callx(1)"));
    EXPECT_FALSE(FindCall("call x"));
    EXPECT_FALSE(FindCall(""));
}

TEST(ParseLiterals, ReadsEveryKind) {
    EXPECT_EQ(Parse("'it''s', 12, -3, +4, 1.5e3, 18446744073709551615, NULL, true, False);"),
              "\"it's\" 12 -3 4 1500.0 18446744073709551615 null true false ");
    EXPECT_EQ(Parse("['a', 'b'], [])"), "[\"a\", \"b\"] [] ");
    EXPECT_EQ(Parse(")"), "");
    EXPECT_EQ(Parse(" ) ; \n"), "");
}

TEST(ParseLiterals, PointsAtWhatIsNoLiteral) {
    const auto position_of = [](std::string_view arguments) {
        try {
            ParseLiterals(arguments);
        } catch (const xLiteralError& error) {
            return static_cast<int>(error.get_Position());
        }
        return -1;
    };
    EXPECT_EQ(position_of("'a', b)"), 5);
    EXPECT_EQ(position_of("1 + 1)"), 2);
    EXPECT_EQ(position_of("'a"), 2);
    EXPECT_EQ(position_of("'a'"), 3);
    EXPECT_EQ(position_of("[1, 2)"), 5);
    EXPECT_EQ(position_of("1) x"), 3);
    EXPECT_EQ(position_of(",)"), 0);
    EXPECT_EQ(position_of("12abc)"), 0);
    EXPECT_EQ(position_of(""), 0);
}

}  // namespace
}  // namespace mduckdb_host
