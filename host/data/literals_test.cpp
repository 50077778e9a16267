#include "data/literals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "data/datum.h"

namespace mduckdb_host {
namespace {

template <class Content>
Content Get(const Datum& datum) {
    const auto* content = std::get_if<Content>(&datum.content);
    EXPECT_NE(content, nullptr) << ToText(datum);
    return content == nullptr ? Content() : *content;
}

TEST(ParseArgument, ReadsWholeNumbersInTheSmallestKindThatHoldsThem) {
    EXPECT_EQ(Get<int64_t>(ParseArgument("12")), 12);
    EXPECT_EQ(Get<int64_t>(ParseArgument("-9223372036854775808")), INT64_MIN);
    EXPECT_EQ(Get<int64_t>(ParseArgument("9223372036854775807")), INT64_MAX);
    EXPECT_EQ(Get<uint64_t>(ParseArgument("9223372036854775808")), uint64_t{INT64_MAX} + 1);
    EXPECT_EQ(Get<uint64_t>(ParseArgument("18446744073709551615")), UINT64_MAX);
}

TEST(ParseArgument, KeepsTheDigitsOfNumbersThatAreTooLarge) {
    EXPECT_EQ(Get<std::string>(ParseArgument("18446744073709551616")), "18446744073709551616");
    EXPECT_EQ(Get<std::string>(ParseArgument("-9223372036854775809")), "-9223372036854775809");
}

TEST(ParseArgument, ReadsOtherNumbersAsDoubles) {
    EXPECT_EQ(Get<double>(ParseArgument("1.5")), 1.5);
    EXPECT_EQ(Get<double>(ParseArgument("1e3")), 1000.0);
}

TEST(ParseArgument, ReadsNullTextsAndArrays) {
    EXPECT_TRUE(ParseArgument("null").get_IsNull());
    EXPECT_EQ(Get<std::string>(ParseArgument("\"a\\nb\"")), "a\nb");
    const List list = Get<List>(ParseArgument(" [\"a\", [1], null] "));
    ASSERT_EQ(list.items.size(), 3U);
    EXPECT_EQ(Get<std::string>(list.items[0]), "a");
    EXPECT_EQ(Get<List>(list.items[1]).items.size(), 1U);
    EXPECT_TRUE(list.items[2].get_IsNull());
}

TEST(ParseArgument, LeavesEverythingElseAsText) {
    for (const char* const text :
         {"", "true", "false", "abc", "{\"a\":1}", "[1", "1 2", "'x'", "[{\"a\":1}]"}) {
        EXPECT_EQ(Get<std::string>(ParseArgument(text)), text);
    }
}

TEST(ParseJson, ReadsBooleansAndKeepsObjectsUnchanged) {
    EXPECT_TRUE(Get<bool>(ParseJson("true")));
    EXPECT_EQ(Get<JsonText>(ParseJson("{\"a\": 1.50}")).text, "{\"a\": 1.50}");
}

TEST(ParseJson, ReadsObjectsInsideOfArrays) {
    const List list = Get<List>(ParseJson("[1, {\"a\": [2]}, \"x\"]"));
    ASSERT_EQ(list.items.size(), 3U);
    EXPECT_EQ(Get<int64_t>(list.items[0]), 1);
    EXPECT_EQ(Get<JsonText>(list.items[1]).text, "{\"a\":[2]}");
    EXPECT_EQ(Get<std::string>(list.items[2]), "x");
}

TEST(ParseJson, RejectsTextThatIsNotJson) {
    EXPECT_THROW(ParseJson("hello"), std::invalid_argument);
    EXPECT_THROW(ParseJson(""), std::invalid_argument);
    EXPECT_THROW(ParseJson("{\"a\""), std::invalid_argument);
}

/** `levels` lists inside one another. */
std::string Brackets(std::size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
}

TEST(ParseJson, ReadsListsAndObjectsDownToTheLastLevelAndRejectsDeeperOnes) {
    EXPECT_NO_THROW(ParseJson(Brackets(kMostLevels)));
    EXPECT_NO_THROW(ParseArgument(Brackets(kMostLevels)));
    EXPECT_NO_THROW(ParseLiterals(Brackets(kMostLevels) + ")"));
    EXPECT_NO_THROW(ParseJson("{\"a\":" + Brackets(kMostLevels - 1) + "}"));
    for (const std::size_t levels : {kMostLevels + 1, std::size_t{400'000}}) {
        EXPECT_THROW(ParseJson(Brackets(levels)), xNestingError);
        EXPECT_THROW(ParseJson(std::string(levels, '[')), xNestingError);
        EXPECT_THROW(ParseJson("[{\"a\":" + Brackets(levels) + "}]"), xNestingError);
        EXPECT_THROW(ParseArgument(Brackets(levels)), xNestingError);
        EXPECT_THROW(ParseLiterals(Brackets(levels) + ")"), xLiteralError);
        std::string objects = "0";
        for (std::size_t level = 0; level < std::min(levels, std::size_t{5'000}); ++level) {
            objects = "{\"a\":" + objects + "}";
        }
        EXPECT_THROW(ParseJson(objects), xNestingError);
    }
}

std::string Parse(std::string_view arguments) {
    std::string text;
    for (const Datum& datum : ParseLiterals(arguments)) {
        AppendJson(text, datum);
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

TEST(ParseLiterals, PointsAtTextThatIsNotALiteral) {
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
