#include <cstdio>
#include <fstream>
#include <thread>

#include "nbx/hooks.h"
#include "statement_fixture.h"

namespace mduckdb::test {

using MultiRowTest = StatementTest;

TEST_F(MultiRowTest, EveryRowIsExecutedAndTheLastCountIsReturned) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, $2)");
    statement->put_ParameterRows(
        Rows({Row({Str("a"), Long(1)}), Row({Str("b"), Long(2)}), Row({Str("c"), Long(3)})}));
    EXPECT_EQ(statement->Execute(), 1);
    EXPECT_EQ(Direct("SELECT * FROM seen ORDER BY type"), (Table{{"a", "1"}, {"b", "2"}, {"c", "3"}}));
    // The rows stay for the next execution.
    EXPECT_EQ(statement->Execute(), 1);
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "6");
}

TEST_F(MultiRowTest, TheCountIsThatOfTheLastRowAndNotASum) {
    Direct("INSERT INTO seen VALUES ('a', '1'), ('a', '2'), ('b', '3')");
    auto statement = Prepared("UPDATE seen SET text = 'x' WHERE type = $1");
    statement->put_ParameterRows(Rows({Row({Str("b")}), Row({Str("a")})}));
    EXPECT_EQ(statement->Execute(), 2);
    statement->put_ParameterRows(Rows({Row({Str("a")}), Row({Str("nobody")})}));
    EXPECT_EQ(statement->Execute(), 0);
}

TEST_F(MultiRowTest, AnEmptyRowSetExecutesNothing) {
    auto statement = Prepared("INSERT INTO seen VALUES ('a', 'b')");
    statement->put_ParameterRows(Rows({}));
    EXPECT_EQ(statement->Execute(), 0);
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "0");
    EXPECT_EQ(statement->OpenCursor(1), nullptr);
}

TEST_F(MultiRowTest, AnEmptyRowSetDoesNotReportTheCountOfAnEarlierRun) {
    auto statement = Prepared("INSERT INTO seen VALUES ('a', $1)");
    statement->put_ParameterRows(Rows({Row({Str("b")})}));
    EXPECT_EQ(statement->Execute(), 1);
    statement->put_ParameterRows(Rows({}));
    EXPECT_EQ(statement->Execute(), 0);
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "1");
}

TEST_F(MultiRowTest, AnEmptyRowSetOpensNoCursorOverAnOlderResult) {
    auto statement = Prepared("SELECT 1");
    statement->Execute();
    statement->put_ParameterRows(Rows({}));
    EXPECT_EQ(statement->OpenCursor(1), nullptr);
    statement->put_ParameterRows(nullptr);
    EXPECT_NE(statement->OpenCursor(1), nullptr);
}

TEST_F(MultiRowTest, MoreThanOneRowOpensNoCursor) {
    auto statement = Prepared("SELECT $1");
    statement->put_ParameterRows(Rows({Row({Long(1)}), Row({Long(2)})}));
    const Thrown expected{"xFeatureError", 0xA000, "mDuckDB - multi-row binding for SqlSelect", ""};
    EXPECT_EQ(Catch([&] { statement->OpenCursor(1); }), expected);
    EXPECT_EQ(Catch([&] { statement->ExecuteToJSON(); }), expected);
}

TEST_F(MultiRowTest, OneRowOpensACursorOverTheStatementBoundWithIt) {
    auto statement = Prepared("SELECT $1 || '!'");
    statement->put_ParameterRows(Rows({Row({Str("row")})}));
    auto cursor = statement->OpenCursor(1);
    ASSERT_NE(cursor, nullptr);
    EXPECT_TRUE(cursor->FirstRecord());
    EXPECT_EQ(Utf8(cursor->get_Value(0)->get_Text()), "row!");
}

TEST_F(MultiRowTest, RowsAndParametersExcludeEachOther) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, 'x')");
    auto rows = Rows({Row({Long(1)}), Row({Long(2)})});
    auto single = Row({Long(3)});
    statement->put_ParameterRows(rows);
    EXPECT_EQ(rows->get_RefsCount(), 2u);
    statement->put_Parameters(single);
    EXPECT_EQ(rows->get_RefsCount(), 1u);
    statement->Execute();
    EXPECT_EQ(Direct("SELECT type FROM seen"), (Table{{"3"}}));
    statement->put_ParameterRows(rows);
    EXPECT_EQ(single->get_RefsCount(), 1u);
}

TEST_F(MultiRowTest, StoringRowsClearsTheBindings) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, $2)");
    statement->BindInteger(2, 9);
    statement->put_ParameterRows(Rows({Row({Long(1)})}));
    EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("Values were not provided"),
              std::string::npos);
}

TEST_F(MultiRowTest, StoringRowsInAClosedDatabaseStoresNothing) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, 'x')");
    auto rows = Rows({Row({Long(1)})});
    auto single = Row({Long(3)});
    database_->Close();
    EXPECT_EQ(Catch([&] { statement->put_ParameterRows(rows); }), kDatabaseIsInvalid);
    EXPECT_EQ(Catch([&] { statement->put_Parameters(single); }), kDatabaseIsInvalid);
    EXPECT_EQ(rows->get_RefsCount(), 1u);
    EXPECT_EQ(single->get_RefsCount(), 1u);
}

TEST_F(MultiRowTest, AnErrorInTheMiddleKeepsTheRowsBefore) {
    Direct("CREATE TABLE keyed (a INTEGER PRIMARY KEY)");
    auto statement = Prepared("INSERT INTO keyed VALUES ($1)");
    statement->put_ParameterRows(Rows({Row({Long(1)}), Row({Long(2)}), Row({Long(1)}), Row({Long(3)})}));
    const Thrown thrown = Catch([&] { statement->Execute(); });
    EXPECT_NE(thrown.message.find("Duplicate key"), std::string::npos) << thrown.message;
    EXPECT_EQ(Direct("SELECT a FROM keyed ORDER BY a"), (Table{{"1"}, {"2"}}));
}

TEST_F(MultiRowTest, ANullRowBindsNothing) {
    auto statement = Prepared("INSERT INTO seen VALUES ('a', 'b')");
    statement->put_ParameterRows(Rows({nullptr, nullptr}));
    EXPECT_EQ(statement->Execute(), 1);
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "2");
}

TEST_F(MultiRowTest, RowsOfSeveralStatementsAreExecutedOneStatementAfterTheOther) {
    auto statement = Make("INSERT INTO seen VALUES ($1, 'first'); INSERT INTO seen VALUES ($1, 'second')");
    statement->put_ParameterRows(Rows({Row({Long(1)}), Row({Long(2)})}));
    statement->ExecuteAll();
    EXPECT_EQ(Direct("SELECT text, type FROM seen ORDER BY ALL"),
              (Table{{"first", "1"}, {"first", "2"}, {"second", "1"}, {"second", "2"}}));
}

TEST_F(MultiRowTest, AnInterruptBetweenTwoRowsEndsTheRun) {
    bool (*const old_hook)() = nbx::mrsql::gpIsLocalSqlCall_PTR;
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    auto rows = nbx::MakeObject<ValueRows>();
    for (int i = 0; i < 1000000; ++i) {
        // The same few rows many times: the run only has to be long.
        rows->Append(i < 4 ? Row({Long(i)}) : rows->get_Item(static_cast<std::size_t>(i % 4)));
    }
    auto statement = Prepared("SELECT $1");
    statement->put_ParameterRows(rows);
    std::thread interrupter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        database_->Interrupt();
    });
    const Thrown thrown = Catch([&] { statement->Execute(); });
    interrupter.join();
    nbx::mrsql::gpIsLocalSqlCall_PTR = old_hook;
    EXPECT_EQ(thrown, (Thrown{"xInterruptError", 0x57501, "", ""}));
}

namespace {

/** Resident memory in kilobytes. */
long ResidentMemory() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

}  // namespace

TEST_F(MultiRowTest, ALongRunHoldsNoMoreMemoryAtTheEnd) {
#ifdef MDUCKDB_TEST_IS_SANITIZED
    GTEST_SKIP() << "A sanitizer's own memory hides what is measured here";
#endif
    constexpr int kRows = 100000;
    auto rows = nbx::MakeObject<ValueRows>();
    for (int i = 0; i < kRows; ++i) {
        rows->Append(Row({Long(i)}));
    }
    // Nothing is stored, so any growth belongs to the module or the binding.
    auto statement = Prepared("SELECT $1::INTEGER, repeat('x', 100)");
    statement->put_ParameterRows(Rows({rows->get_Item(0)}));
    for (int i = 0; i < 1000; ++i) {
        statement->Execute();
    }
    statement->put_ParameterRows(rows);
    const long before = ResidentMemory();
    statement->Execute();
    const long growth = ResidentMemory() - before;
    RecordProperty("growth_kb", static_cast<int>(growth));
    // A result kept for each row would be more than 100 MB; allocators may keep a little.
    EXPECT_LT(growth, 8 * 1024);
}

}  // namespace mduckdb::test
