#include "text/messages.h"

#include <gtest/gtest.h>

#include <ctime>
#include <stdexcept>

#include "nbx/exception.h"
#include "text/text.h"

namespace mduckdb_host {
namespace {

constexpr const char* kJson =
    R"({"exception_type":"Catalog","exception_message":"Table with name x does not exist!","position":"14"})";

TEST(ParseDuckDBError, ReadsAJsonObject) {
    const DuckDBError error = ParseDuckDBError(kJson);
    EXPECT_EQ(error.type, "Catalog");
    EXPECT_EQ(error.message, "Table with name x does not exist!");
    EXPECT_EQ(error.position, 14);
}

TEST(ParseDuckDBError, ReadsAnObjectAfterItsKind) {
    const DuckDBError error =
        ParseDuckDBError(R"(Parser Error: {"exception_type":"Parser","exception_message":"m"})");
    EXPECT_EQ(error.type, "Parser");
    EXPECT_EQ(error.message, "m");
    EXPECT_EQ(error.position, -1);
}

TEST(ParseDuckDBError, KeepsOtherTextsWhole) {
    for (const char* const text : {"Invalid Input Error: Values were not provided: 1", "File does not exist",
                                   "", "{\"a\":1}", "{broken", "Error: {\"a\"", "about {x}"}) {
        const DuckDBError error = ParseDuckDBError(text);
        EXPECT_EQ(error.message, text);
        EXPECT_EQ(error.type, "");
        EXPECT_EQ(error.position, -1);
    }
}

TEST(MakeCaret, PointsUnderThePosition) {
    InitDisplayWidth();
    EXPECT_EQ(MakeCaret("SELECT * FROM x", 14), "LINE 1: SELECT * FROM x\n                      ^");
    EXPECT_EQ(MakeCaret("a\nbcd\ne", 3), "LINE 2: bcd\n         ^");
    EXPECT_EQ(MakeCaret("ab", 2), "LINE 1: ab\n          ^");
    EXPECT_EQ(MakeCaret("ab", 0), "LINE 1: ab\n        ^");
}

TEST(MakeCaret, CountsTheColumnsOfATerminal) {
    InitDisplayWidth();
    EXPECT_EQ(MakeCaret("日é\tx", 6), "LINE 1: 日é\\tx\n             ^");
}

TEST(MakeCaret, ShortensLongLinesOnBothSides) {
    InitDisplayWidth();
    const std::string caret = MakeCaret(std::string(100, 'a') + "X" + std::string(100, 'b'), 100);
    const std::string line = "LINE 1: …" + std::string(50, 'a') + "X" + std::string(39, 'b') + "…";
    EXPECT_EQ(caret, line + "\n" + std::string(59, ' ') + "^");
}

TEST(MakeCaret, RemovesWholeCharactersBeforeThePosition) {
    InitDisplayWidth();
    std::string wide;
    for (int i = 0; i < 100; ++i) {
        wide += "日";
    }
    const std::string line = "LINE 1: …" + wide.substr(0, std::size_t{3} * 24) + "éX";
    EXPECT_EQ(MakeCaret(wide + "éX", 302), line + "\n" + std::string(58, ' ') + "^");
    EXPECT_EQ(MakeCaret("a" + wide.substr(0, std::size_t{3} * 25) + "X", 76),
              "LINE 1: …" + wide.substr(0, std::size_t{3} * 25) + "X\n" + std::string(59, ' ') + "^");
}

TEST(MakeCaret, IsQuickForAVeryLongLine) {
    InitDisplayWidth();
    const std::clock_t start = std::clock();  // the processor's time, whatever else the machine does
    for (const std::string& part :
         {std::string("a"), std::string("é"), std::string("日\t"), std::string("\xFF")}) {
        std::string sql = "SELECT ";
        while (sql.size() < 4'000'000) {
            sql += part;
        }
        const std::size_t place = sql.size();
        sql += "X" + sql;
        const std::string caret = MakeCaret(sql, static_cast<int64_t>(place));
        EXPECT_NE(caret.find("X"), std::string::npos);
        EXPECT_LT(caret.size(), 1000U);
    }
    EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
}

TEST(MakeCaret, IsEmptyWithoutAPosition) {
    EXPECT_EQ(MakeCaret("SELECT", -1), "");
    EXPECT_EQ(MakeCaret("SELECT", 7), "");
    EXPECT_EQ(MakeCaret("", 0), "");
}

TEST(DescribeException, DistinguishesTheHostsExceptions) {
    InitDisplayWidth();
    EXPECT_EQ(DescribeException(nbx::xInterruptError(0x57501), "SELECT 1"), "Interrupted.");
    EXPECT_EQ(DescribeException(nbx::mrsql::xDuckDBError(0x72501, "path", kJson), "SELECT * FROM x"),
              "Catalog Error: Table with name x does not exist!\n\nLINE 1: SELECT * FROM x\n" +
                  std::string(22, ' ') + "^");
    EXPECT_EQ(DescribeException(nbx::mrsql::xDuckDBError(0x72501, "path", "File does not exist"), ""),
              "File does not exist");
    EXPECT_EQ(DescribeException(nbx::xException(0x99000, "IO Error: no"), ""), "IO Error: no");
    EXPECT_EQ(DescribeException(nbx::xDBError(0x66000), ""), "The folder contains no backup.");
    EXPECT_EQ(DescribeException(std::runtime_error("plain"), ""), "plain");
}

}  // namespace
}  // namespace mduckdb_host
