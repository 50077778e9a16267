#include "shell/statement_splitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace mduckdb_host {
namespace {

using Statements = std::vector<std::string>;

/** The statements of a text, and what is left without a semicolon in brackets. */
Statements Split(const std::string& text, std::size_t piece) {
    StatementSplitter splitter;
    Statements statements;
    std::string statement;
    for (std::size_t i = 0; i < text.size(); i += piece) {
        splitter.Add(text.substr(i, piece));
        while (splitter.TakeStatement(statement)) {
            statements.push_back(statement);
        }
    }
    const std::string rest = splitter.TakeRest();
    if (!rest.empty()) {
        statements.push_back("[" + rest + "]");
    }
    return statements;
}

void ExpectSplit(const std::string& text, const Statements& statements) {
    EXPECT_EQ(Split(text, text.size() + 1), statements) << text;
}

TEST(StatementSplitter, CutsAtSemicolons) {
    ExpectSplit("SELECT 1; SELECT 2;\nSELECT 3", {"SELECT 1;", "SELECT 2;", "[SELECT 3]"});
}

TEST(StatementSplitter, LeavesOutBlanksAndComments) {
    ExpectSplit(" ;; -- nothing;\n ; /* ; */ ;", {});
    ExpectSplit("-- first;\n/* second; */ SELECT 1;", {"SELECT 1;"});
    ExpectSplit("-- only", {});
}

TEST(StatementSplitter, SeesNoSemicolonInQuotesAndComments) {
    ExpectSplit("SELECT 'a;b', \"c;d\";", {"SELECT 'a;b', \"c;d\";"});
    ExpectSplit("SELECT 'it''s;';", {"SELECT 'it''s;';"});
    ExpectSplit("SELECT 1 -- ; no\n;", {"SELECT 1 -- ; no\n;"});
    ExpectSplit("SELECT /* a; /* b; */ c; */ 1;", {"SELECT /* a; /* b; */ c; */ 1;"});
    ExpectSplit("SELECT 'a\\'; SELECT 2;", {"SELECT 'a\\';", "SELECT 2;"});
}

TEST(StatementSplitter, SeesNoSemicolonInEscapedTexts) {
    ExpectSplit("SELECT E'it\\'s;';", {"SELECT E'it\\'s;';"});
    ExpectSplit("SELECT e'a\\\\'; SELECT 2;", {"SELECT e'a\\\\';", "SELECT 2;"});
    ExpectSplit("SELECT abce'a\\'; SELECT 2;", {"SELECT abce'a\\';", "SELECT 2;"});
}

TEST(StatementSplitter, SeesNoSemicolonInDollarQuotes) {
    ExpectSplit("SELECT $$a;b$$;", {"SELECT $$a;b$$;"});
    ExpectSplit("SELECT $x$a;$$;$x$;", {"SELECT $x$a;$$;$x$;"});
    ExpectSplit("SELECT $1; SELECT a$b$;", {"SELECT $1;", "SELECT a$b$;"});
}

TEST(StatementSplitter, AcceptsLinesOfAnyLength) {
    const std::string text =
        "SELECT $x$a;$x$ -- c;\n;\n/* x; */ SELECT E'\\';' || 'it''s;', \"a;\";\nSELECT 3";
    const Statements whole = Split(text, text.size());
    ASSERT_EQ(whole.size(), 3U);
    // Marks of two characters come in one piece, as lines do.
    StatementSplitter splitter;
    Statements by_line;
    std::string statement;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size() - 1) + 1;
        splitter.Add(text.substr(start, end - start));
        while (splitter.TakeStatement(statement)) {
            by_line.push_back(statement);
        }
        start = end;
    }
    by_line.push_back("[" + splitter.TakeRest() + "]");
    EXPECT_EQ(by_line, whole);
}

TEST(StatementSplitter, KnowsWhetherItIsInsideOfAStatement) {
    StatementSplitter splitter;
    EXPECT_FALSE(splitter.get_IsInside());
    splitter.Add("-- comment\n");
    std::string statement;
    EXPECT_FALSE(splitter.TakeStatement(statement));
    EXPECT_FALSE(splitter.get_IsInside());
    splitter.Add("SELECT\n");
    EXPECT_FALSE(splitter.TakeStatement(statement));
    EXPECT_TRUE(splitter.get_IsInside());
    splitter.Clear();
    EXPECT_FALSE(splitter.get_IsInside());
    EXPECT_EQ(splitter.TakeRest(), "");
}

TEST(StatementSplitter, TellsWhatEachCharacterBelongsTo) {
    const StatementSplitter splitter;
    EXPECT_EQ(splitter.Classify("Select a1, 12.5 from x"), "kkkkkkcccccnnnnckkkkcc");
    EXPECT_EQ(splitter.Classify("'it''s' || E'\\'' x"), "qqqqqqqcccccqqqqcc");
    EXPECT_EQ(splitter.Classify("\"a b\" -- c\n1"), "qqqqqc-----n");
    EXPECT_EQ(splitter.Classify("/* a */ 'open;"), "-------cqqqqqq");
    EXPECT_EQ(splitter.Classify("$x$ a $x$ E'\\"), "qqqqqqqqqccqq");
}

TEST(StatementSplitter, TellsWhatContinuesAnOpenText) {
    StatementSplitter splitter;
    std::string statement;
    splitter.Add("SELECT 'a\n");
    EXPECT_FALSE(splitter.TakeStatement(statement));
    EXPECT_EQ(splitter.Classify("b' from"), "qqckkkk");
    splitter.Clear();
    splitter.Add("/* /* */\n");
    EXPECT_FALSE(splitter.TakeStatement(statement));
    EXPECT_EQ(splitter.Classify("b */ 1"), "----cn");
    splitter.Clear();
    splitter.Add("SELECT $x$\n");
    EXPECT_FALSE(splitter.TakeStatement(statement));
    EXPECT_EQ(splitter.Classify("$x$ 1"), "qqqcn");
}

TEST(StatementSplitter, KnowsTheLineOfEachStatement) {
    StatementSplitter splitter;
    splitter.Add("-- one\n\nSELECT\n1; SELECT 2;\n/* five\n*/ SELECT 3;\nSELECT 4");
    std::string statement;
    std::vector<int64_t> lines;
    while (splitter.TakeStatement(statement)) {
        lines.push_back(splitter.get_StatementLine());
    }
    EXPECT_EQ(splitter.TakeRest(), "SELECT 4");
    lines.push_back(splitter.get_StatementLine());
    EXPECT_EQ(lines, (std::vector<int64_t>{3, 4, 6, 7}));
    splitter.Clear(20);
    splitter.Add("\nSELECT 5;");
    EXPECT_TRUE(splitter.TakeStatement(statement));
    EXPECT_EQ(splitter.get_StatementLine(), 21);
}

}  // namespace
}  // namespace mduckdb_host
