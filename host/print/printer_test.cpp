#include "print/printer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>

#include "mirona/extension_api.h"
#include "text/text.h"

namespace mduckdb_host {
namespace {

const std::vector<Column> kColumns = {{"id", 5, MIRONA_TYPE_INT64}, {"name", 17, MIRONA_TYPE_TEXT}};

/** What the printer of a format writes into a file for the given rows. */
std::string Print(Format format, const std::vector<Row>& rows) {
    InitDisplayWidth();
    const int file = memfd_create("printer", 0);
    {
        Output out(file);
        const auto printer = MakePrinter(out, {format, true});
        printer->Begin(kColumns);
        for (const Row& row : rows) {
            printer->Add(row);
        }
        printer->End();
        out.Flush();
    }
    std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_CUR)), '\0');
    EXPECT_EQ(pread(file, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    close(file);
    return text;
}

TEST(TablePrinter, AlignsNumbersRightAndWideTextLeft) {
    EXPECT_EQ(Print(Format::kTable, {{{int64_t{1}}, {std::string("日本")}}, {{int64_t{100}}, {}}}),
              "┌─────┬──────┐\n"
              "│  id │ name │\n"
              "├─────┼──────┤\n"
              "│   1 │ 日本 │\n"
              "│ 100 │ NULL │\n"
              "└─────┴──────┘\n"
              "2 rows\n");
}

TEST(TablePrinter, ShowsEachLineOfATextOnItsOwnLine) {
    EXPECT_EQ(Print(Format::kTable,
                    {{{int64_t{1}}, {std::string("a\nlonger\n\nb\n")}}, {{int64_t{2}}, {std::string("c")}}}),
              "┌────┬────────┐\n"
              "│ id │ name   │\n"
              "├────┼────────┤\n"
              "│  1 │ a      │\n"
              "│    │ longer │\n"
              "│    │        │\n"
              "│    │ b      │\n"
              "│  2 │ c      │\n"
              "└────┴────────┘\n"
              "2 rows\n");
}

TEST(TablePrinter, SendsNoControlCharactersToTheTerminal) {
    EXPECT_NE(
        Print(Format::kTable, {{{int64_t{1}}, {std::string("a\tb\x1b[0m")}}}).find("│ a\\tb\\u001b[0m │"),
        std::string::npos);
}

TEST(TablePrinter, ReportsThatLaterRowsAreWiderThanTheirColumn) {
    std::vector<Row> rows(10000, Row{{int64_t{1}}, {std::string("n")}});
    EXPECT_TRUE(Print(Format::kTable, rows).ends_with("┘\n10,000 rows\n"));
    rows.push_back({{int64_t{22}}, {std::string("name")}});
    EXPECT_TRUE(Print(Format::kTable, rows).ends_with("┘\n10,001 rows\n"));
    rows.push_back({{int64_t{333}}, {std::string("n")}});
    EXPECT_TRUE(Print(Format::kTable, rows)
                    .ends_with("│ 333 │ n    │\n└────┴──────┘\n"
                               "10,002 rows, columns sized for the first 10,000 rows\n"));
}

TEST(TablePrinter, PrintsAnEmptyResult) {
    EXPECT_EQ(Print(Format::kTable, {}),
              "┌────┬──────┐\n"
              "│ id │ name │\n"
              "├────┼──────┤\n"
              "└────┴──────┘\n"
              "0 rows\n");
}

TEST(JsonPrinter, PrintsAnEmptyResult) {
    EXPECT_TRUE(Print(Format::kJson, {}).ends_with("],\"rows\":[],\"row_count\":0}\n"));
}

TEST(JsonlPrinter, PrintsNothingForAnEmptyResult) {
    EXPECT_EQ(Print(Format::kJsonl, {}), "");
}

TEST(CsvPrinter, PrintsTheNamesOfAnEmptyResult) {
    EXPECT_EQ(Print(Format::kCsv, {}), "id,name\n");
}

TEST(MarkdownPrinter, EscapesWhatMarkdownReads) {
    EXPECT_EQ(Print(Format::kMarkdown, {{{int64_t{1}}, {std::string("a|*b*\n")}}, {{}, {}}}),
              "| id | name |\n| ---: | --- |\n| 1 | a\\|\\*b\\*\\\\n |\n| *NULL* | *NULL* |\n");
}

TEST(CountOf, GroupsTheDigits) {
    EXPECT_EQ(CountOf(0, "row"), "0 rows");
    EXPECT_EQ(CountOf(1, "row"), "1 row");
    EXPECT_EQ(CountOf(999, "row"), "999 rows");
    EXPECT_EQ(CountOf(1000, "row"), "1,000 rows");
    EXPECT_EQ(CountOf(UINT64_MAX, "row"), "18,446,744,073,709,551,615 rows");
}

TEST(Output, ReportsThatTheReaderIsGone) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    std::signal(SIGPIPE, SIG_IGN);
    Output out(ends[1]);
    out.Write("text");
    EXPECT_THROW(out.Flush(), xOutputClosed);
    close(ends[1]);
}

}  // namespace
}  // namespace mduckdb_host
