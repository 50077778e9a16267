#include <chrono>
#include <thread>

#include "appender_fixture.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/duckdb_error_facts.h"
#include "support/expected_by_version.h"

namespace mduckdb::test {
namespace {

TEST_F(AppenderTest, NamesRowAndColumnOfAValueThatCannotBeStored) {
    Direct("CREATE TABLE t (i INTEGER, \"my date\" DATE)");
    const Appender appender = Open("t");
    appender->AppendRow(Row({Long(1), Date(2024, 1, 31)}));
    EXPECT_EQ(Catch([&] {
                  appender->AppendRow(Row({Str("one"), NullOf(20)}));
              }),
              MemoryError("Row 2, column \"i\": Could not convert string 'one' to INT32"));
    EXPECT_EQ(Catch([&] {
                  appender->AppendRow(Row({NullOf(8), TimeOfDay(25, 0, 0, 0)}));
              }),
              MemoryError("Row 2, column \"my date\": The value cannot become a DuckDB value"));
    EXPECT_EQ(Catch([&] { appender->AppendRow(Row({Long(2)})); }),
              MemoryError("Row 2: 1 values for 2 columns"));
    EXPECT_EQ(Catch([&] { appender->AppendRow(nullptr); }), MemoryError("Row 2: 0 values for 2 columns"));
    // The failed rows left nothing behind, not even their NULLs.
    appender->AppendRow(Row({Long(3), Date(2024, 1, 30)}));
    appender->Close();
    EXPECT_EQ(Direct("FROM t"), (Table{{"1", "2024-01-31"}, {"3", "2024-01-30"}}));
}

TEST_F(AppenderTest, KeepsTheRowsBeforeAFailingOneOfSeveral) {
    Direct("CREATE TABLE t (i INTEGER)");
    const Appender appender = Open("t");
    EXPECT_EQ(Catch([&] {
                  appender->AppendRows(Rows({Row({Long(1)}), Row({Str("x")}), Row({Long(3)})}));
              }),
              MemoryError("Row 2, column \"i\": Could not convert string 'x' to INT32"));
    EXPECT_EQ(appender->get_PendingRowCount(), 1u);
    appender->Close();
    EXPECT_EQ(Scalar("SELECT string_agg(i) FROM t"), "1");
}

struct Violation {
    const char* name;
    const char* column;
    int32_t value;
    const char* message;
};

class AppenderConstraints : public AppenderTest, public testing::WithParamInterface<Violation> {};

TEST_P(AppenderConstraints, FailAFlushThatThenStoresNothing) {
    const Violation& violation = GetParam();
    Direct(std::string("CREATE TABLE t (i INTEGER ") + violation.column + ")");
    const Appender appender = Open("t");
    appender->AppendRow(Row({Long(1)}));
    appender->Flush();
    for (int32_t i = 2; i <= 6000; ++i) {
        appender->AppendRow(
            Row({i == 4321 ? (violation.value < 0 ? NullOf(8) : Long(violation.value)) : Long(i)}));
    }
    std::string message = violation.message;
    if (const std::size_t at = message.find("table t "); at != message.npos) {
        message.replace(at + 6, 1, get_ExpectedByVersion().checked_table);
    }
    EXPECT_EQ(Catch([&] { appender->Flush(); }), MemoryError("Row 4321: Constraint Error: " + message));
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "1");
    EXPECT_EQ(appender->get_PendingRowCount(), 0u);
    EXPECT_EQ(appender->get_StoredRowCount(), 1u);
    // The appender can be used on.
    appender->AppendRow(Row({Long(7000)}));
    appender->Close();
    EXPECT_EQ(Scalar("SELECT string_agg(i) FROM t"), "1,7000");
}

INSTANTIATE_TEST_SUITE_P(
    Every, AppenderConstraints,
    testing::Values(Violation{"Key", "PRIMARY KEY", 1,
                              "Duplicate key \"i: 1\" violates primary key constraint."},
                    Violation{"KeyInTheSameFlush", "PRIMARY KEY", 99,
                              "PRIMARY KEY or UNIQUE constraint violation: duplicate key \"99\""},
                    Violation{"NotNull", "NOT NULL", -1, "NOT NULL constraint failed: t.i"},
                    Violation{"Check", "CHECK (i <> 6666)", 6666,
                              "CHECK constraint failed on table t with expression CHECK((i != 6666))"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(AppenderTest, OfOneTransactionStoresNothingOfItAfterAFailedFlush) {
    Direct("CREATE TABLE t (i INTEGER PRIMARY KEY)");
    const Appender appender = Open("t", true);
    appender->AppendRow(Row({Long(1)}));
    appender->Commit();
    appender->AppendRow(Row({Long(2)}));
    appender->Flush();
    appender->AppendRow(Row({Long(2)}));
    // The row that it repeats was rolled back, so DuckDB would store it now: no row is named.
    EXPECT_EQ(
        Catch([&] { appender->Commit(); }).message,
        "Rows 2 to 3: Constraint Error: PRIMARY KEY or UNIQUE constraint violation: duplicate key \"2\"");
    EXPECT_EQ(Scalar("SELECT string_agg(i) FROM t"), "1");
    appender->AppendRow(Row({Long(2)}));
    appender->Close();
    EXPECT_EQ(Scalar("SELECT string_agg(i) FROM t"), "1,2");
}

TEST_F(AppenderTest, OfOneTransactionNamesTheRowThatTheReasonIsOf) {
    Direct("CREATE TABLE t (i INTEGER PRIMARY KEY, n INTEGER NOT NULL)");
    const Appender appender = Open("t", true);
    appender->AppendRow(Row({Long(1), Long(1)}));
    appender->Flush();
    appender->AppendRow(Row({Long(1), Long(1)}));
    for (int32_t i = 3; i <= 2048 + 2; ++i) {
        appender->AppendRow(Row({Long(i), Long(i)}));
    }
    // In another chunk, so the key fails before it. The row that the key repeats is rolled back.
    appender->AppendRow(Row({Long(10'000), nullptr}));
    EXPECT_EQ(Catch([&] { appender->Commit(); }),
              MemoryError("Row 2051: Constraint Error: NOT NULL constraint failed: t.n"));
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "0");
}

TEST_F(AppenderTest, StatesTheFactsOfAFailedFlush) {
    Direct("CREATE TABLE t (i INTEGER NOT NULL)");
    const Appender appender = Open("t");
    appender->AppendRow(Row({nullptr}));
    try {
        appender->Flush();
        FAIL();
    } catch (const nbx::mrsql::xDuckDBError& error) {
        const auto* const facts = nbx::mrsql::FindDuckDBErrorFacts(error);
        ASSERT_NE(facts, nullptr);
        EXPECT_EQ(Utf8(facts->get_KindName()), "Constraint");
        EXPECT_EQ(Utf8(facts->get_PlainMessage()), "NOT NULL constraint failed: t.i");
    }
}

TEST_F(AppenderTest, ClosesEvenIfTheRowsCannotBeStored) {
    Direct("CREATE TABLE t (i INTEGER NOT NULL)");
    const Appender appender = Open("t");
    appender->AppendRow(Row({NullOf(8)}));
    EXPECT_EQ(Catch([&] { appender->Close(); }),
              MemoryError("Row 1: Constraint Error: NOT NULL constraint failed: t.i"));
    EXPECT_EQ(Catch([&] { appender->Flush(); }), kAppenderIsInvalid);
    appender->Close();
}

TEST_F(AppenderTest, NeedsAnOpenDatabaseATableAndColumns) {
    Direct("CREATE TABLE t (i INTEGER, g INTEGER GENERATED ALWAYS AS (i))");
    Direct("CREATE VIEW v AS SELECT 1 AS i");
    EXPECT_EQ(Catch([&] { Open("nowhere"); }), MemoryError(get_ExpectedByVersion().missing_table));
    EXPECT_EQ(Catch([&] { Open("v"); }).exception, "xDuckDBError");
    EXPECT_EQ(Catch([&] { OpenColumns("t", {Text("x")}); }),
              MemoryError("Column \"x\": the column must exist in the table"));
    EXPECT_EQ(Catch([&] {
                  OpenColumns("t", {Text("i"), Text("i")});
              }),
              MemoryError("Column \"i\": cannot add the same column twice"));
    EXPECT_EQ(Catch([&] { OpenColumns("t", {Text("g")}); }),
              MemoryError("Column \"g\": cannot add a generated column to the appender"));
    const std::vector<String> names = {Text("i")};
    DuckDBAppenderOptions options;
    options.table = Text("t");
    options.columns = names.data();
    EXPECT_EQ(Catch([&] { Appenders().CreateAppender(options); }),
              MemoryError("An appender needs at least one column"));
    EXPECT_EQ(Catch([&] { Open(std::string_view("t\0u", 3)); }),
              MemoryError("Names must not contain NUL characters"));
    database_->Close();
    EXPECT_EQ(Catch([&] { Open("t"); }), MemoryError("DuckDBDatabase is not open"));
    database_->Create();
}

/** A table into which many rows take seconds. */
class SlowAppenderTest : public AppenderTest {
  protected:
    SlowAppenderTest() {
        Direct("CREATE TABLE slow (i BIGINT CHECK (length(sha256(repeat(i::VARCHAR, 20000))) > 0))");
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    }
    ~SlowAppenderTest() override { nbx::mrsql::gpIsLocalSqlCall_PTR = nullptr; }

    Appender OpenWithRows() {
        Appender appender = Open("slow");
        for (int64_t i = 0; i < 100'000; ++i) {
            appender->AppendRow(Row({LLong(i)}));
        }
        return appender;
    }
};

TEST_F(SlowAppenderTest, IsInterruptedDuringAFlush) {
    const Appender appender = OpenWithRows();
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        database_->Interrupt();
    });
    EXPECT_EQ(Catch([&] { appender->Flush(); }).exception, "xInterruptError");
    other.join();
    EXPECT_EQ(appender->get_PendingRowCount(), 0u);
    appender->AppendRow(Row({LLong(1)}));
    appender->Close();
    EXPECT_EQ(Scalar("SELECT count(*) FROM slow"), "1");
}

TEST_F(SlowAppenderTest, IsCutByTheTimeLimitOfTheDatabase) {
    const Appender appender = OpenWithRows();
    auto* deadlines = static_cast<nbx::mrsql::I_DuckDBDeadlines*>(
        database_->QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId));
    deadlines->put_TimeLimit(50);
    EXPECT_EQ(Catch([&] { appender->Flush(); }),
              MemoryError("Rows 1 to 100000: The time limit of 50 ms is over: the statement was cut"));
    deadlines->put_TimeLimit(0);
    EXPECT_EQ(Scalar("SELECT count(*) FROM slow"), "0");
}

TEST_F(SlowAppenderTest, OfColumnsIsInterruptedAndCut) {
    const std::vector<int64_t> numbers(200'000, 7);
    DuckDBColumnArray column{};
    column.type = DUCKDB_TYPE_BIGINT;
    column.data = numbers.data();
    const Appender appender = Open("slow");
    const auto append = [&] { appender->AppendColumns(&column, 1, numbers.size()); };
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        database_->Interrupt();
    });
    EXPECT_EQ(Catch(append).exception, "xInterruptError");
    other.join();
    EXPECT_EQ(appender->get_PendingRowCount(), 0u);
    auto* deadlines = static_cast<nbx::mrsql::I_DuckDBDeadlines*>(
        database_->QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId));
    deadlines->put_TimeLimit(50);
    EXPECT_EQ(Catch(append),
              MemoryError("Rows 122881 to 245760: The time limit of 50 ms is over: the statement was cut"));
    deadlines->put_TimeLimit(0);
    EXPECT_EQ(Scalar("SELECT count(*) FROM slow"), "0");
    appender->AppendColumns(&column, 1, 1);
    appender->Close();
    EXPECT_EQ(Scalar("SELECT count(*) FROM slow"), "1");
}

TEST_F(SlowAppenderTest, NamesTheRowsOfLongTextsThatAreCut) {
    Direct("CREATE TABLE texts (s VARCHAR CHECK (length(sha256(repeat(s, 20))) > 0))");
    const std::string text(1016, 'x');
    const std::vector<DuckDBBytes> texts(200'000, {text.data(), text.size()});
    DuckDBColumnArray column{};
    column.type = DUCKDB_TYPE_VARCHAR;
    column.data = texts.data();
    const Appender appender = Open("texts");
    auto* deadlines = static_cast<nbx::mrsql::I_DuckDBDeadlines*>(
        database_->QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId));
    deadlines->put_TimeLimit(400);
    // 64 MiB of rows of 16 bytes and a text.
    EXPECT_EQ(Catch([&] { appender->AppendColumns(&column, 1, texts.size()); }),
              MemoryError("Rows 1 to 65536: The time limit of 400 ms is over: the statement was cut"));
    deadlines->put_TimeLimit(0);
    EXPECT_EQ(Scalar("SELECT count(*) FROM texts"), "0");
}

TEST_F(SlowAppenderTest, MakesTheClosingDatabaseWait) {
    const Appender appender = OpenWithRows();
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        database_->Interrupt();
        database_->Close();
    });
    const Thrown thrown = Catch([&] { appender->Flush(); });
    other.join();
    EXPECT_EQ(thrown.exception, "xInterruptError");
    EXPECT_EQ(Catch([&] { appender->AppendRow(Row({LLong(1)})); }), kAppenderIsInvalid);
}

}  // namespace
}  // namespace mduckdb::test
