#include "data/datum.h"

#include <gtest/gtest.h>

#include <limits>

namespace mduckdb_host {
namespace {

std::string ToJson(const Datum& datum) {
    std::string text;
    AppendJson(text, datum);
    return text;
}

TEST(DatumText, WritesDoublesWithTheFewestDigitsAndAsDoubles) {
    EXPECT_EQ(ToText({0.1}), "0.1");
    EXPECT_EQ(ToText({1.0}), "1.0");
    EXPECT_EQ(ToText({-0.0}), "-0.0");
    EXPECT_EQ(ToText({1e300}), "1e+300");
    EXPECT_EQ(ToText({0.1 + 0.2}), "0.30000000000000004");
}

TEST(DatumText, WritesWholeNumbersInFull) {
    EXPECT_EQ(ToText({INT64_MIN}), "-9223372036854775808");
    EXPECT_EQ(ToText({UINT64_MAX}), "18446744073709551615");
}

TEST(DatumText, WritesDatesAndTimesWithFixedWidth) {
    EXPECT_EQ(ToText({nbx::DateContent{2024, 3, 5}}), "2024-03-05");
    EXPECT_EQ(ToText({nbx::DateContent{-44, 3, 15}}), "-044-03-15");
    EXPECT_EQ(ToText({nbx::TimeContent{1, 2, 3, 4}}), "01:02:03.004");
    EXPECT_EQ(ToText({nbx::DateTimeContent{{2024, 3, 15}, {12, 34, 56, 789}}}), "2024-03-15 12:34:56.789");
}

TEST(DatumText, WritesBytesInHexadecimal) {
    EXPECT_EQ(ToText({Bytes{std::string("\x00\xff", 2)}}), "\\x00ff");
    EXPECT_EQ(ToText({Bytes{}}), "\\x");
}

TEST(DatumJson, WritesNumbersBooleansAndNullsAsSuch) {
    EXPECT_EQ(ToJson({int64_t{-1}}), "-1");
    EXPECT_EQ(ToJson({true}), "true");
    EXPECT_EQ(ToJson({}), "null");
    EXPECT_EQ(ToJson({List{{{int64_t{1}}, {}, {std::string("a")}}}}), "[1, null, \"a\"]");
}

TEST(DatumJson, WritesNumbersThatJsonLacksAsText) {
    EXPECT_EQ(ToJson({std::numeric_limits<double>::quiet_NaN()}), "\"NaN\"");
    EXPECT_EQ(ToJson({std::numeric_limits<double>::infinity()}), "\"Infinity\"");
    EXPECT_EQ(ToJson({-std::numeric_limits<double>::infinity()}), "\"-Infinity\"");
}

TEST(DatumJson, EscapesTextsAndReplacesWhatIsNotUtf8) {
    EXPECT_EQ(ToJson({std::string("a\"\\\n\x01\x7f")}), "\"a\\\"\\\\\\n\\u0001\x7f\"");
    EXPECT_EQ(ToJson({std::string("\xff\xc3")}), "\"\xef\xbf\xbd\xef\xbf\xbd\"");
    EXPECT_EQ(ToJson({std::string("é日🦆")}), "\"é日🦆\"");
    EXPECT_EQ(ToJson({std::string("a\0b", 3)}), "\"a\\u0000b\"");
}

TEST(DatumJson, KeepsJsonUnchanged) {
    EXPECT_EQ(ToJson({JsonText{"{\"a\":[1]}"}}), "{\"a\":[1]}");
    EXPECT_EQ(ToJson({JsonText{"{broken"}}), "\"{broken\"");
}

}  // namespace
}  // namespace mduckdb_host
