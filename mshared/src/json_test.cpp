#include "nbx/json.h"

#include <clocale>
#include <string>

#include "mshared/test_support.h"

namespace nbx {
namespace {

std::string Get(const Json& json, const char* key) {
    return Narrow(json.get_JsonValue(key));
}

TEST(Json, ReadsAnErrorOfDuckDB) {
    const Json json(
        R"({"exception_type":"Parser","exception_message":"syntax error at \"x\"","position":"7"})");
    ASSERT_TRUE(json.isValid());
    EXPECT_EQ(Get(json, "exception_type"), "Parser");
    EXPECT_EQ(Get(json, "exception_message"), "syntax error at \"x\"");
    EXPECT_EQ(json.get_JsonValue("position").parseLLong(), 7);
    EXPECT_EQ(Get(json, "missing"), "");
}

TEST(Json, KeepsTheDigitsOfNumbers) {
    const Json json(
        R"({"a":1.10,"b":12345678901234567890123,"c":-0,"d":-12,"e":1E+02,"f":18446744073709551615,
                        "g":-9223372036854775808,"h":1e400,"i":0.1000000000000000055511151231257827})");
    ASSERT_TRUE(json.isValid());
    EXPECT_EQ(Get(json, "a"), "1.10");
    EXPECT_EQ(Get(json, "b"), "12345678901234567890123");
    EXPECT_EQ(Get(json, "c"), "-0");
    EXPECT_EQ(Get(json, "d"), "-12");
    EXPECT_EQ(Get(json, "e"), "1E+02");
    EXPECT_EQ(Get(json, "f"), "18446744073709551615");
    EXPECT_EQ(Get(json, "g"), "-9223372036854775808");
    EXPECT_EQ(Get(json, "h"), "1e400");
    EXPECT_EQ(Get(json, "i"), "0.1000000000000000055511151231257827");
}

TEST(Json, KeepsTheDigitsOfNumbersInNestedContent) {
    const Json json(
        R"({ "n" : { "a" : [ 1.10 , 12345678901234567890123, { } , [ ] ] , "b" : "x\ty" , "c":null,
                         "d" : [true,false] }, "after": 1 })");
    ASSERT_TRUE(json.isValid());
    EXPECT_EQ(Get(json, "n"),
              R"({"a":[1.10,12345678901234567890123,{},[]],"b":"x\u0009y","c":null,"d":[true,false]})");
    EXPECT_EQ(Get(json, "after"), "1");
    EXPECT_EQ(Get(json, "a"), "") << "a member of an inner object is none of the outermost one";
}

TEST(Json, KeepsTheDigitsOfNumbersInAnyLocale) {
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) {
        GTEST_SKIP() << "This machine has no locale with a decimal comma";
    }
    const Json json(R"({"a":1.10,"n":[2.50]})");
    std::setlocale(LC_NUMERIC, before.c_str());
    EXPECT_EQ(Get(json, "a"), "1.10");
    EXPECT_EQ(Get(json, "n"), "[2.50]");
}

TEST(Json, ReadsLiteralNamesAsTextAndNullAsTheEmptyText) {
    const Json json(R"({"t":true,"f":false,"n":null,"e":"","u":"\u20ac\ud83d\ude00\u0000!"})");
    EXPECT_EQ(Get(json, "t"), "true");
    EXPECT_EQ(Get(json, "f"), "false");
    EXPECT_EQ(Get(json, "n"), "");
    EXPECT_EQ(Get(json, "e"), "");
    EXPECT_EQ(Get(json, "u"), std::string("\xE2\x82\xAC\xF0\x9F\x98\x80\0!", 9));
}

TEST(Json, KeepsTheLastOfDuplicateMembers) {
    EXPECT_EQ(Get(Json(R"({"a":1,"a":[2]})"), "a"), "[2]");
}

TEST(Json, ReportsTextThatIsNotJson) {
    for (const char* const text : {"", " ", "{", "{\"a\":1", "{\"a\":1}}", "{a:1}", "[1,]", "nul", "01", "1.",
                                   "\"a", "{\"a\":1} x", "\"\xFF\"", "\"\\ud800\"", "\"a\nb\"", "NaN", "'a'",
                                   "Parser Error: {\"exception_type\":\"Parser\"}"}) {
        const Json json(text);
        EXPECT_FALSE(json.isValid()) << text;
        EXPECT_EQ(Get(json, "a"), "") << text;
    }
    EXPECT_FALSE(Json(nullptr).isValid());
}

TEST(Json, AcceptsAnyJsonValueAndHasMembersOfObjectsOnly) {
    for (const char* const text : {"1", "\"a\"", "null", "true", "[]", "[{\"a\":1}]", " {} "}) {
        const Json json(text);
        EXPECT_TRUE(json.isValid()) << text;
        EXPECT_EQ(Get(json, "a"), "") << text;
    }
}

TEST(Json, ReadsTextThatIsNestedAHundredThousandLevelsDeep) {
    constexpr std::size_t kDepth = 100'000;
    const std::string open(kDepth, '[');
    const std::string close(kDepth, ']');
    const Json arrays(("{\"a\":" + open + "1.10" + close + "}").c_str());
    ASSERT_TRUE(arrays.isValid());
    EXPECT_EQ(Get(arrays, "a"), open + "1.10" + close);
    std::string objects = "{\"a\":";
    for (std::size_t i = 0; i < kDepth; ++i) {
        objects += "{\"k\":";
    }
    objects += "0" + std::string(kDepth + 1, '}');
    EXPECT_TRUE(Json(objects.c_str()).isValid());
    EXPECT_FALSE(Json(open.c_str()).isValid());
}

}  // namespace
}  // namespace nbx
