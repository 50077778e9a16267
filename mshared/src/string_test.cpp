#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <utility>

#include "mshared/test_support.h"

namespace nbx {
namespace {

TEST(String, IsEmptyAtFirst) {
    const String text;
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(text.get_Length(), 0U);
    EXPECT_EQ(text.c_str()[0], u'\0');
    EXPECT_EQ(text, String::sEmpty());
}

TEST(String, CopiesNarrowTextUpToItsTerminatorOrLength) {
    EXPECT_EQ(String("h\xC3\xA4user").get_View(), u"h\u00E4user");
    EXPECT_EQ(String("h\xC3\xA4user", 3).get_View(), u"h\u00E4");
    EXPECT_EQ(String("a\0b", 3).get_View(), std::u16string_view(u"a\0b", 3));
    EXPECT_EQ(String("abc", 0), String());
    EXPECT_EQ(String("abc", -1, GetConverter_UTF8(), 0).get_View(), u"abc");
    EXPECT_EQ(String(static_cast<const char*>(nullptr)), String());
}

TEST(String, CopiesWideTextUnchanged) {
    const char16_t units[] = {u'a', 0, 0xD83D, u'b'};
    const String text(units, 4);
    EXPECT_EQ(text.get_View(), std::u16string_view(units, 4));
    EXPECT_EQ(String(static_cast<const char16_t*>(nullptr), 0), String());
}

/** An encoding with a character of its own for each byte. */
class UpperConverter final : public Converter {
  public:
    std::u16string ToUTF16(std::string_view text) const override { return std::u16string(text.size(), u'U'); }
    std::string FromUTF16(std::u16string_view text) const override { return std::string(text.size(), 'N'); }
};

TEST(String, ConvertsWithTheEncodingGiven) {
    const UpperConverter converter;
    EXPECT_EQ(String("abc", -1, &converter).get_View(), u"UUU");
    EXPECT_STREQ(StFromUTF16(Wide("ab"), &converter).c_str(), "NN");
    EXPECT_EQ(std::u16string(StToUTF16("ab", 1, &converter).c_str()), u"U");
}

TEST(String, IsCopiedAndMoved) {
    String first = Wide("a text that is too long for any inner buffer");
    const String copy = first;
    const String moved = std::move(first);
    EXPECT_EQ(copy, moved);
    EXPECT_TRUE(first.isEmpty());  // NOLINT(bugprone-use-after-move): emptiness is promised
    first = copy;
    EXPECT_EQ(first, copy);
}

TEST(String, IsAssignedFromNarrowAndWideText) {
    String text;
    text = "gr\xC3\xBC";
    EXPECT_EQ(text.get_View(), u"gr\u00FC");
    text = u"wide";
    EXPECT_EQ(text.get_View(), u"wide");
    text = text.c_str();
    EXPECT_EQ(text.get_View(), u"wide");
    text = static_cast<const char16_t*>(nullptr);
    EXPECT_TRUE(text.isEmpty());
    text = "x";
    text = static_cast<const char*>(nullptr);
    EXPECT_TRUE(text.isEmpty());
}

TEST(String, GrowsByTextsAndNumbers) {
    String text = Wide("Can not be dropped. ");
    text << uint32_t{2} << Wide(" connections are alive");
    text += ".";
    EXPECT_EQ(Narrow(text), "Can not be dropped. 2 connections are alive.");
    text << text;
    EXPECT_EQ(text.get_Length(), 88U);
    text.clear();
    text << std::numeric_limits<uint32_t>::max();
    EXPECT_EQ(Narrow(text), "4294967295");
}

TEST(String, ComparesExactlyAndOrdersByCodeUnits) {
    EXPECT_EQ(Wide("abc"), Wide("abc"));
    EXPECT_FALSE(Wide("abc") == Wide("Abc"));
    EXPECT_FALSE(Wide(std::string("a\0b", 3)) == Wide(std::string("a\0c", 3)));
    EXPECT_TRUE(Wide("a") < Wide("ab"));
    EXPECT_TRUE(Wide("Z") < Wide("a"));
    EXPECT_FALSE(Wide("a") < Wide("a"));
    const std::map<String, int> registry{{Wide("/b"), 2}, {Wide("/a"), 1}};
    EXPECT_EQ(registry.at(Wide("/a")), 1);
}

TEST(String, ReadsTheNumberThatItStartsWith) {
    EXPECT_EQ(Wide("42").parseLLong(), 42);
    EXPECT_EQ(Wide(" \t-17 apples").parseLLong(), -17);
    EXPECT_EQ(Wide("+8").parseLLong(), 8);
    EXPECT_EQ(Wide("12.9").parseLLong(), 12);
    EXPECT_EQ(Wide("").parseLLong(), 0);
    EXPECT_EQ(Wide("-").parseLLong(), 0);
    EXPECT_EQ(Wide("apples").parseLLong(), 0);
}

TEST(String, ClampsNumbersToTheRange) {
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    EXPECT_EQ(Wide("9223372036854775807").parseLLong(), kMax);
    EXPECT_EQ(Wide("9223372036854775808").parseLLong(), kMax);
    EXPECT_EQ(Wide("-9223372036854775808").parseLLong(), kMin);
    EXPECT_EQ(Wide("-9223372036854775809").parseLLong(), kMin);
    EXPECT_EQ(Wide("99999999999999999999999999").parseLLong(), kMax);
    EXPECT_EQ(Wide("-99999999999999999999999999").parseLLong(), kMin);
}

TEST(StToUTF16, HoldsTheWideText) {
    StToUTF16 wide(
        "\xE2\x82\xAC"
        "5",
        -1, GetConverter_UTF8());
    EXPECT_EQ(std::u16string(wide.c_str()), u"\u20AC5");
    EXPECT_EQ(wide.get_Length(), 2U);
    EXPECT_EQ(wide.Take(), u"\u20AC5");
    EXPECT_EQ(StToUTF16("abc", 2, nullptr).get_Length(), 2U);
}

TEST(StFromUTF16, HoldsTheNarrowText) {
    StFromUTF16 narrow(Wide(std::string("a\0b", 3)), GetConverter_UTF8());
    EXPECT_EQ(narrow.get_Length(), 3U);
    EXPECT_EQ(narrow.get_View(), std::string_view("a\0b", 3));
    EXPECT_EQ(narrow.Take(), std::string("a\0b", 3));
}

TEST(EscapeStringU, DoublesSingleQuotes) {
    const std::u16string path = u"/it's/o''k";
    EXPECT_EQ(Narrow(EscapeStringU(path.data(), path.size())), "/it''s/o''''k");
    EXPECT_EQ(EscapeStringU(u"", 0), String());
    const std::u16string other(u"a\\\"\0\n", 5);
    EXPECT_EQ(EscapeStringU(other.data(), other.size()).get_View(), other);
}

}  // namespace
}  // namespace nbx
