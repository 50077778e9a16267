#include "shell/line_painter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "shell/statement_splitter.h"
#include "text/text.h"

namespace mduckdb_host {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/** Paints code; the cursor is behind it unless it is given. */
std::string Paint(std::wstring_view text, const std::string& hint = {},
                  std::size_t cursor = std::string::npos) {
    InitDisplayWidth();
    const EditedLine line{text, std::min(cursor, text.size()), 3, 10, 4};
    return PaintLine(line, std::string(text.size(), static_cast<char>(TextKind::kCode)), hint);
}

TEST(LinePainter, PaintsTheLineAtItsPlaceAndReturns) {
    EXPECT_EQ(Paint(L"abc"),
              "\x1b"
              "7\r\x1b[3Cabc\x1b[m\x1b"
              "8");
}

TEST(LinePainter, ChangesTheColourOnlyBetweenKinds) {
    InitDisplayWidth();
    EXPECT_THAT(PaintLine({L"if 'b", 5, 3, 80, 24}, "kkcqq", {}),
                HasSubstr("C\x1b[36mif\x1b[m \x1b[32m'b\x1b[m"));
}

TEST(LinePainter, FollowsALongLineOverTheRows) {
    // Seven characters fit beside the prompt, and ten into each further row.
    EXPECT_THAT(Paint(L"1234567"), StartsWith("\x1b"
                                              "7\x1b[1A\r\x1b[3C1234567\x1b[m"));
    EXPECT_THAT(Paint(L"12345678"), StartsWith("\x1b"
                                               "7\x1b[1A\r\x1b[3C1234567\r\n8\x1b[m"));
    EXPECT_THAT(Paint(L"12345678", {}, 2), StartsWith("\x1b"
                                                      "7\r\x1b[3C1234567\r\n8\x1b[m"));
    EXPECT_THAT(Paint(L"123456日", {}, 6), StartsWith("\x1b"
                                                      "7\x1b[1A\r\x1b[3C123456\r\n日\x1b[m"));
    EXPECT_THAT(Paint(L"1\n2"), StartsWith("\x1b"
                                           "7\x1b[1A\r\x1b[3C1\r\n2\x1b[m"));
}

TEST(LinePainter, CutsTheHintAtTheEndOfTheRow) {
    EXPECT_THAT(Paint(L"abc", "def"), HasSubstr("\x1b[2mdef\x1b[m"));
    EXPECT_THAT(Paint(L"abc", "defghi"), HasSubstr("\x1b[2mdef\x1b[m"));
    EXPECT_THAT(Paint(L"abcdef", "g"), Not(HasSubstr("\x1b[2m")));
}

TEST(LinePainter, PaintsNothingWhereAPlaceIsNotCertain) {
    EXPECT_EQ(Paint(L"a\tb"), "");
    EXPECT_EQ(Paint(std::wstring(40, L'x')), "") << "taller than the screen";
    EXPECT_NE(Paint(std::wstring(36, L'x')), "");
    EXPECT_EQ(PaintLine({L"a", 1, 10, 10, 4}, "c", {}), "");
}

}  // namespace
}  // namespace mduckdb_host
