#include "text/text.h"

#include <gtest/gtest.h>

namespace mduckdb_host {
namespace {

class DisplayWidthTest : public ::testing::Test {
  protected:
    void SetUp() override { InitDisplayWidth(); }
};

TEST_F(DisplayWidthTest, CountsWideCharactersTwiceAndCombiningOnesNotAtAll) {
    EXPECT_EQ(DisplayWidth(""), 0);
    EXPECT_EQ(DisplayWidth("abc"), 3);
    EXPECT_EQ(DisplayWidth("é"), 1);
    EXPECT_EQ(DisplayWidth("日本"), 4);
    EXPECT_EQ(DisplayWidth("민"), 2);
    EXPECT_EQ(DisplayWidth("🦆"), 2);
    EXPECT_EQ(DisplayWidth("e\xcc\x81"), 1);
    EXPECT_EQ(DisplayWidth("\xff\xff"), 2);
}

TEST_F(DisplayWidthTest, CutsBetweenCharacters) {
    EXPECT_EQ(CutToWidth("abc", 2), "ab");
    EXPECT_EQ(CutToWidth("日本", 3), "日");
    EXPECT_EQ(CutToWidth("日本", 1), "");
    EXPECT_EQ(CutToWidth("e\xcc\x81x", 1), "e\xcc\x81");
    EXPECT_EQ(CutToWidth("abc", 9), "abc");
}

TEST_F(DisplayWidthTest, MakesTextHarmlessOnATerminal) {
    EXPECT_EQ(ToPrintable("a\tb\nc\r"), "a\\tb\\nc\\r");
    EXPECT_EQ(ToPrintable("\x1b[31m"), "\\u001b[31m");
    EXPECT_EQ(ToPrintable("\xc2\x9b"), "\\u009b");
    EXPECT_EQ(ToPrintable("\xe2\x80\xae"), "\\u202e");
    EXPECT_EQ(ToPrintable("a\xff"), "a\xef\xbf\xbd");
    EXPECT_EQ(ToPrintable("é日🦆"), "é日🦆");
}

TEST(DescribeSize, ChoosesTheUnit) {
    EXPECT_EQ(DescribeSize(1), "1 byte");
    EXPECT_EQ(DescribeSize(1000), "1,000 bytes");
    EXPECT_EQ(DescribeSize(1572864), "1.5 MB (1,572,864 bytes)");
}

}  // namespace
}  // namespace mduckdb_host
