#include "base/json_text.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>

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

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/** Decodes an escaped text to its bytes; nothing when `JsonEscape` could not have written it. */
std::optional<std::string> Unescape(const std::string& escaped) {
    const std::string letters = "\"\\btnfr";
    const std::string meanings = "\"\\\b\t\n\f\r";
    std::string bytes;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        const char c = escaped[i];
        if (c < 0x20 || c == '"') {
            return std::nullopt;
        }
        if (c != '\\') {
            bytes += c;
            continue;
        }
        const char letter = ++i < escaped.size() ? escaped[i] : '\0';
        if (const std::size_t known = letters.find(letter); letter != '\0' && known != std::string::npos) {
            bytes += meanings[known];
            continue;
        }
        if (letter != 'u' || escaped.compare(i + 1, 2, "00") != 0 || i + 4 >= escaped.size()) {
            return std::nullopt;
        }
        const int high = HexDigit(escaped[i + 3]);
        const int low = HexDigit(escaped[i + 4]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        bytes += static_cast<char>(high * 16 + low);
        i += 4;
    }
    return bytes;
}

TEST(JsonEscape, WritesTheNamedEscapesWithALetter) {
    EXPECT_EQ(JsonEscape("\"\\\b\t\n\f\r"), R"(\"\\\b\t\n\f\r)");
    EXPECT_EQ(JsonEscape("\"\\\t\x01"), R"(\"\\\t\u0001)");
}

TEST(JsonEscape, WritesOtherControlBytesInLowercaseHexadecimal) {
    EXPECT_EQ(JsonEscape("\x0b"), R"(\u000b)");
    EXPECT_EQ(JsonEscape("\x1f"), R"(\u001f)");
    EXPECT_EQ(JsonEscape(std::string_view("\0", 1)), R"(\u0000)");
}

TEST(JsonEscape, EscapesEachByteOfACharacterBeyondASCII) {
    EXPECT_EQ(JsonEscape("\xFF"), R"(\u00ff)");
    EXPECT_EQ(JsonEscape("\xC3\xA9"), R"(\u00c3\u00a9)");
    EXPECT_EQ(JsonEscape("\x80"), R"(\u0080)");
}

TEST(JsonEscape, LeavesPrintableASCIIAndDELUnchanged) {
    EXPECT_EQ(JsonEscape("a/'<>~\x7f "), "a/'<>~\x7f ");
    EXPECT_EQ(JsonEscape(""), "");
}

TEST(JsonEscape, EscapesEverySingleByteSoThatItRoundTrips) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        const std::string escaped = JsonEscape(text);
        const bool is_plain = byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\';
        const bool has_letter = std::string("\"\\\b\t\n\f\r").find(text) != std::string::npos;
        EXPECT_EQ(escaped.size(), is_plain ? 1U : has_letter ? 2U : 6U) << byte;
        EXPECT_EQ(Unescape(escaped), text) << byte;
    }
}

TEST(JsonEscape, EscapesRandomBytesSoThatTheyRoundTrip) {
    std::mt19937 random(42);
    for (int round = 0; round < 2000; ++round) {
        std::string text(random() % 200, '\0');
        for (char& c : text) {
            c = static_cast<char>(random());
        }
        const std::string escaped = JsonEscape(text);
        EXPECT_EQ(Unescape(escaped), text);
        for (const char c : escaped) {
            EXPECT_GE(c, 0x20);
        }
    }
}

}  // namespace
}  // namespace mduckdb
