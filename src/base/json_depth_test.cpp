#include "base/json_depth.h"

#include <gtest/gtest.h>

#include <string>

namespace mduckdb {
namespace {

std::string Nest(std::size_t levels, char open, char close) {
    return std::string(levels, open) + std::string(levels, close);
}

TEST(JsonDepth, CountsOpenArraysAndObjectsTogether) {
    EXPECT_FALSE(NestsDeeperThan("", 0));
    EXPECT_FALSE(NestsDeeperThan("1", 0));
    EXPECT_TRUE(NestsDeeperThan("[]", 0));
    EXPECT_FALSE(NestsDeeperThan("[]", 1));
    EXPECT_FALSE(NestsDeeperThan(R"([{"a":1}])", 2));
    EXPECT_TRUE(NestsDeeperThan(R"([{"a":[]}])", 2));
}

TEST(JsonDepth, ClosedLevelsDoNotAddUp) {
    std::string wide = "[";
    for (int i = 0; i < 1000; ++i) {
        wide += "[{}],";
    }
    EXPECT_FALSE(NestsDeeperThan(wide + "0]", 3));
    EXPECT_TRUE(NestsDeeperThan(wide + "0]", 2));
}

TEST(JsonDepth, TheLimitItselfIsAllowed) {
    EXPECT_FALSE(NestsDeeperThan(Nest(kDeepestJson, '[', ']'), kDeepestJson));
    EXPECT_TRUE(NestsDeeperThan(Nest(kDeepestJson + 1, '[', ']'), kDeepestJson));
    EXPECT_TRUE(NestsDeeperThan(Nest(kDeepestJson + 1, '{', '}'), kDeepestJson));
}

TEST(JsonDepth, BracketsInsideStringsDoNotCount) {
    EXPECT_FALSE(NestsDeeperThan(R"("[[[[{{{{")", 0));
    EXPECT_FALSE(NestsDeeperThan(R"(["\"[[", "\\"])", 1));
    EXPECT_TRUE(NestsDeeperThan(R"(["\\",[]])", 1));
    EXPECT_FALSE(NestsDeeperThan(std::string_view("\"\0[[[\"", 6), 0));
}

TEST(JsonDepth, TextThatIsNotJsonIsScannedToItsEnd) {
    EXPECT_FALSE(NestsDeeperThan("]]]]}}}}", 0));
    EXPECT_TRUE(NestsDeeperThan("]]]][", 0));
    EXPECT_FALSE(NestsDeeperThan("\"abc\\", 0));
    EXPECT_TRUE(NestsDeeperThan(std::string(100000, '['), kDeepestJson));
}

TEST(JsonDepth, OnlyTheLiteralNullIsNull) {
    EXPECT_TRUE(IsJsonNull("null"));
    EXPECT_TRUE(IsJsonNull(" \t\r\nnull\n"));
    EXPECT_FALSE(IsJsonNull(""));
    EXPECT_FALSE(IsJsonNull("  "));
    EXPECT_FALSE(IsJsonNull("NULL"));
    EXPECT_FALSE(IsJsonNull("\"null\""));
    EXPECT_FALSE(IsJsonNull("null null"));
    EXPECT_FALSE(IsJsonNull("nul"));
    EXPECT_FALSE(IsJsonNull(std::string_view("null\0", 5)));
}

}  // namespace
}  // namespace mduckdb
