#include "procedures/query_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/fake_host.h"

namespace mduckdb {
namespace {

using test::FakeHost;

TEST(ColumnName, IsThePositionFromOneWhenDuckDBHasNone) {
    EXPECT_EQ("Column2", ColumnName(std::nullopt, 1));
    EXPECT_EQ("a", ColumnName("a", 1));
    EXPECT_EQ("", ColumnName("", 1));
    EXPECT_EQ(std::string("a\0b", 3), ColumnName(std::string_view("a\0b", 3), 1));
}

TEST(RunQuery, ReturnsACursorWithTheColumnsOfTheQuery) {
    FakeHost host;
    RunQuery(host.get_Call(), "p", PrivateEngine::OpenInMemory("p"),
             "SELECT 1::DECIMAL(4,1) AS d, 'x' AS t, true AS b", "");
    ASSERT_TRUE(host.has_cursor);
    ASSERT_EQ(3u, host.cursor.column_count);
    EXPECT_EQ("d", std::string(host.cursor.columns[0].name, host.cursor.columns[0].name_length));
    EXPECT_EQ(11u, host.cursor.columns[0].duckdb_type);
    EXPECT_EQ(6u, host.cursor.columns[0].host_type);
    EXPECT_EQ(17u, host.cursor.columns[1].duckdb_type);
    EXPECT_EQ(10u, host.cursor.columns[1].host_type);
}

TEST(RunQuery, DeliversACountOfMoreThan32Bits) {
    FakeHost host;
    RunQuery(host.get_Call(), "p", PrivateEngine::OpenInMemory("p"), "SELECT 6000000000::BIGINT AS count",
             "");
    ASSERT_TRUE(host.has_cursor);
    ASSERT_EQ(MIRONA_ROW_OK, host.cursor.next_row(host.cursor.state));
    EXPECT_EQ("6000000000", host.Cell(0));
}

TEST(RunQuery, ThrowsDuckDBsTextOfTheProbeOrOfTheRun) {
    FakeHost host;
    const auto error_of = [&](const char* query) -> std::string {
        try {
            RunQuery(host.get_Call(), "p", PrivateEngine::OpenInMemory("p"), query, "");
            return "nothing was thrown";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    EXPECT_THAT(error_of("SELECT nope"), ::testing::StartsWith("Binder Error"));
    EXPECT_THAT(error_of("SELECT error('at run time') AS e FROM range(3)"),
                ::testing::HasSubstr("at run time"));
    EXPECT_FALSE(host.has_cursor);
}

TEST(RunQuery, KeepsColumnsOfTheSameNameApart) {
    FakeHost host;
    RunQuery(host.get_Call(), "p", PrivateEngine::OpenInMemory("p"), "SELECT 1 AS a, 2 AS a", "");
    ASSERT_TRUE(host.has_cursor);
    ASSERT_EQ(MIRONA_ROW_OK, host.cursor.next_row(host.cursor.state));
    EXPECT_EQ("1", host.Cell(0));
    EXPECT_EQ("2", host.Cell(1));
}

}  // namespace
}  // namespace mduckdb
