#include <array>
#include <random>
#include <string>
#include <string_view>

#include "mshared/test_support.h"

namespace nbx {
namespace {

std::u16string ToWide(std::string_view text) {
    return GetConverter_UTF8()->ToUTF16(text);
}

std::string ToNarrow(std::u16string_view text) {
    return GetConverter_UTF8()->FromUTF16(text);
}

/** Shifts the text through all positions relative to the block size, so that every path sees it. */
void ExpectBothWays(const std::string& narrow, const std::u16string& wide) {
    for (std::size_t lead = 0; lead <= 33; ++lead) {
        const std::string narrow_text = std::string(lead, 'a') + narrow + std::string(33 - lead, 'z');
        const std::u16string wide_text = std::u16string(lead, u'a') + wide + std::u16string(33 - lead, u'z');
        EXPECT_EQ(ToWide(narrow_text), wide_text) << "after " << lead;
        EXPECT_EQ(ToNarrow(wide_text), narrow_text) << "after " << lead;
    }
}

TEST(Unicode, ConvertsCharactersOfEveryLengthBothWays) {
    ExpectBothWays("", u"");
    ExpectBothWays("\x7F", u"\x7F");
    ExpectBothWays("\xC2\x80", u"\u0080");
    ExpectBothWays("\xDF\xBF", u"\u07FF");
    ExpectBothWays("\xE0\xA0\x80", u"\u0800");
    ExpectBothWays("\xED\x9F\xBF", u"\uD7FF");
    ExpectBothWays("\xEE\x80\x80", u"\uE000");
    ExpectBothWays("\xEF\xBF\xBF", u"\uFFFF");
    ExpectBothWays("\xF0\x90\x80\x80", u"\U00010000");
    ExpectBothWays("\xF0\x9F\x98\x80", u"\U0001F600");
    ExpectBothWays("\xF4\x8F\xBF\xBF", u"\U0010FFFF");
}

TEST(Unicode, KeepsEmbeddedNulCharacters) {
    ExpectBothWays(std::string("a\0b\0\0", 5), std::u16string(u"a\0b\0\0", 5));
}

TEST(Unicode, ReplacesEachLoneSurrogateByOneCharacter) {
    const std::string replacement = "\xEF\xBF\xBD";
    const char16_t lead = 0xD83D;
    const char16_t trail = 0xDE00;
    EXPECT_EQ(ToNarrow(std::u16string{lead}), replacement);
    EXPECT_EQ(ToNarrow(std::u16string{trail}), replacement);
    EXPECT_EQ(ToNarrow(std::u16string{trail, lead}), replacement + replacement);
    EXPECT_EQ(ToNarrow(std::u16string{lead, lead, trail}), replacement + "\xF0\x9F\x98\x80");
    EXPECT_EQ(ToNarrow(std::u16string{lead, u'a', trail, u'b'}), replacement + "a" + replacement + "b");
}

struct BrokenText {
    const char* what;
    std::string text;
    std::u16string expected;
};

TEST(Unicode, ReplacesInvalidUtf8AndKeepsTheRest) {
    const std::array<BrokenText, 14> cases{{
        {"a trail byte alone", "a\x80z", u"a\uFFFDz"},
        {"two trail bytes alone", "\xBF\xBF", u"\uFFFD\uFFFD"},
        {"a lead byte at the end", "a\xE2", u"a\uFFFD"},
        {"a cut sequence of three at the end", "a\xE2\x82", u"a\uFFFD"},
        {"a cut sequence of four at the end", "\xF0\x9F\x98", u"\uFFFD"},
        {"a cut sequence before ASCII", "\xE2\x82z", u"\uFFFDz"},
        {"a cut sequence before a good one", "\xE2\x82\xE2\x82\xAC", u"\uFFFD\u20AC"},
        {"an overlong slash of two", "\xC0\xAF", u"\uFFFD\uFFFD"},
        {"an overlong slash of three", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},
        {"an overlong slash of four", "\xF0\x80\x80\xAF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"a surrogate written as UTF-8", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
        {"a code point beyond the last", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"a lead byte of five", "\xF8\x88\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"bytes that never occur", "\xFE\xFF", u"\uFFFD\uFFFD"},
    }};
    for (const BrokenText& test : cases) {
        EXPECT_EQ(ToWide(test.text), test.expected) << test.what;
        const std::string long_text = std::string(600, 'x') + test.text;
        EXPECT_EQ(ToWide(long_text), std::u16string(600, u'x') + test.expected) << "late: " << test.what;
    }
}

TEST(Unicode, FindsInvalidBytesAnywhereInARunOfTwoByteCharacters) {
    const std::string pair = "\xD0\xB6";
    const std::array<BrokenText, 7> cases{{
        {"nothing", "", u""},
        {"an ASCII character", "-", u"-"},
        {"the smallest overlong pair", "\xC0\x80", u"\uFFFD\uFFFD"},
        {"the largest overlong pair", "\xC1\xBF", u"\uFFFD\uFFFD"},
        {"a lead byte without its trail byte", "\xD0", u"\uFFFD"},
        {"a trail byte alone", "\xB6", u"\uFFFD"},
        {"a character of three bytes", "\xE2\x82\xAC", u"\u20AC"},
    }};
    for (const BrokenText& test : cases) {
        for (std::size_t before = 0; before <= 20; ++before) {
            std::string narrow;
            for (std::size_t i = 0; i < before; ++i) {
                narrow += pair;
            }
            narrow += test.text;
            for (int i = 0; i < 20; ++i) {
                narrow += pair;
            }
            ASSERT_EQ(ToWide(narrow),
                      std::u16string(before, u'\u0436') + test.expected + std::u16string(20, u'\u0436'))
                << test.what << " after " << before;
        }
    }
}

TEST(Unicode, ConvertsRandomCodePointsThereAndBack) {
    std::mt19937 random(20240131);
    std::uniform_int_distribution<uint32_t> kind(0, 3);
    constexpr std::array<uint32_t, 4> kEnds{0x80, 0x800, 0x10000, 0x110000};
    for (int round = 0; round < 300; ++round) {
        std::u16string wide;
        const std::size_t length = random() % 1500;
        for (std::size_t i = 0; i < length; ++i) {
            auto code_point = static_cast<uint32_t>(random() % kEnds[kind(random)]);
            if (code_point >= 0xD800 && code_point < 0xE000) {
                code_point = u'-';
            }
            if (code_point < 0x10000) {
                wide += static_cast<char16_t>(code_point);
            } else {
                wide += static_cast<char16_t>(0xD800 + ((code_point - 0x10000) >> 10U));
                wide += static_cast<char16_t>(0xDC00 + ((code_point - 0x10000) & 0x3FFU));
            }
        }
        ASSERT_EQ(ToWide(ToNarrow(wide)), wide) << "round " << round;
    }
}

TEST(Unicode, TurnsRandomBytesIntoTextThatConvertsExactlyFromThenOn) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::string bytes(random() % 1500, '\0');
        for (char& byte : bytes) {
            // Mostly bytes that begin or continue longer sequences.
            byte = static_cast<char>(random() % 4 == 0 ? random() % 256 : 0x80 + random() % 128);
        }
        const std::u16string wide = ToWide(bytes);
        const std::string narrow = ToNarrow(wide);
        ASSERT_EQ(ToWide(narrow), wide) << "round " << round;
        ASSERT_LE(wide.size(), bytes.size());
    }
}

TEST(Unicode, ConvertsTextsOfAnyLengthAroundItsBuffersAlike) {
    const std::string unit = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
    const std::u16string wide_unit = u"a\u00E4\u20AC\U0001F600";
    std::string narrow;
    std::u16string wide;
    for (int i = 0; i < 700; ++i) {
        ASSERT_EQ(ToWide(narrow), wide) << i << " units";
        ASSERT_EQ(ToNarrow(wide), narrow) << i << " units";
        narrow += unit;
        wide += wide_unit;
    }
}

TEST(Unicode, ConvertsATextOfAHundredMegabytes) {
    constexpr std::size_t kSize = 100'000'000;
    std::string narrow(kSize, 'x');
    narrow.replace(kSize - 4, 4, "\xF0\x9F\x98\x80");
    const std::u16string wide = ToWide(narrow);
    ASSERT_EQ(wide.size(), kSize - 2);
    EXPECT_EQ(wide.substr(wide.size() - 3), u"x\U0001F600");
    EXPECT_TRUE(ToNarrow(wide) == narrow);
}

}  // namespace
}  // namespace nbx
