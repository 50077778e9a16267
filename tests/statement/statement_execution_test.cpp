#include <array>
#include <atomic>
#include <chrono>
#include <thread>

#include "base/engine_lock.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "statement_fixture.h"
#include "support/expected_by_version.h"

namespace mduckdb::test {

using ExecutionTest = StatementTest;

TEST_F(ExecutionTest, EmptySqlPreparesNothing) {
    for (const char* sql : {"", "   ", "-- nothing but a comment", ";;"}) {
        auto statement = Make(sql);
        statement->PrepareNext();
        EXPECT_FALSE(statement->ExecuteNext()) << sql;
        EXPECT_EQ(statement->get_PendingCount(), 0u) << sql;
        EXPECT_EQ(statement->Execute(), 0) << sql;
        EXPECT_EQ(statement->OpenCursor(1), nullptr) << sql;
        const auto outcome = statement->TryExecuteAll();
        EXPECT_EQ(outcome.statements_executed, 1u) << sql;
        EXPECT_EQ(outcome.error_code, 0u) << sql;
        EXPECT_TRUE(outcome.error_message.isEmpty()) << sql;
        statement->ExecuteAll();
    }
}

TEST_F(ExecutionTest, ExecuteNextReportsWhetherThereAreMore) {
    auto statement = Make("INSERT INTO seen VALUES ('a', 'b'), ('c', 'd'); SELECT 2");
    int64_t rows_changed = -1;
    EXPECT_TRUE(statement->ExecuteNext(rows_changed));
    EXPECT_EQ(rows_changed, 2);
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), "INSERT INTO seen VALUES ('a', 'b'), ('c', 'd')");
    EXPECT_FALSE(statement->ExecuteNext(rows_changed));
    EXPECT_EQ(rows_changed, 0);
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), get_ExpectedByVersion().blank_before_statement + "SELECT 2");
    // Nothing happens after the last one.
    EXPECT_FALSE(statement->ExecuteNext(rows_changed));
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "2");
}

TEST_F(ExecutionTest, ExecuteOfASelectReportsNoChangedRows) {
    auto statement = Prepared("SELECT * FROM range(5)");
    EXPECT_EQ(statement->Execute(), 0);
}

TEST_F(ExecutionTest, ExecuteReportsTheRowsThatAStatementChanged) {
    Direct("INSERT INTO seen SELECT 'a', range FROM range(7)");
    EXPECT_EQ(Prepared("UPDATE seen SET type = 'b' WHERE text::INT < 3")->Execute(), 3);
    EXPECT_EQ(Prepared("DELETE FROM seen")->Execute(), 7);
    EXPECT_EQ(Prepared("CREATE TABLE t (a INTEGER)")->Execute(), 0);
}

TEST_F(ExecutionTest, AStatementCanBeExecutedAgain) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, 'x')");
    statement->BindInteger(1, 5);
    EXPECT_EQ(statement->Execute(), 1);
    EXPECT_EQ(statement->Execute(), 1);
    EXPECT_EQ(Direct("SELECT type FROM seen"), (Table{{"5"}, {"5"}}));
}

TEST_F(ExecutionTest, ExecuteWithoutAPreparedStatementDoesNothing) {
    auto statement = Make("INSERT INTO seen VALUES ('a', 'b')");
    EXPECT_EQ(statement->Execute(), 0);
    EXPECT_EQ(statement->OpenCursor(1), nullptr);
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "0");
}

TEST_F(ExecutionTest, ExecuteAllRunsEveryStatementAndStartsOver) {
    auto statement = Make("INSERT INTO seen VALUES ('a', 'b'); INSERT INTO seen VALUES ('c', 'd')");
    statement->ExecuteAll();
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), Utf8(statement->get_SqlText()));
    EXPECT_EQ(statement->get_PendingCount(), 0u);
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "2");
    statement->ExecuteAll();
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "4");
}

TEST_F(ExecutionTest, ExecuteAllStopsAtTheFirstErrorAndThrowsIt) {
    auto statement =
        Make("INSERT INTO seen VALUES ('a', 'b'); SELECT * FROM nowhere; INSERT INTO seen VALUES ('c', 'd')");
    const Thrown thrown = Catch([&] { statement->ExecuteAll(); });
    EXPECT_EQ(thrown.exception, "xDuckDBError");
    EXPECT_EQ(thrown.code, 0x72501u);
    EXPECT_EQ(thrown.name, ":memory:");
    EXPECT_NE(thrown.message.find("nowhere"), std::string::npos) << thrown.message;
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "1");
    EXPECT_EQ(statement->get_PendingCount(), 2u);
}

TEST_F(ExecutionTest, TryExecuteAllReportsTheFirstErrorAndStartsOver) {
    auto statement =
        Make("INSERT INTO seen VALUES ('a', 'b'); SELECT * FROM nowhere; INSERT INTO seen VALUES ('c', 'd')");
    for (int run = 1; run <= 2; ++run) {
        const auto outcome = statement->TryExecuteAll();
        EXPECT_EQ(outcome.statements_executed, 1u);
        EXPECT_EQ(outcome.error_code, 0x72501u);
        EXPECT_NE(Utf8(outcome.error_message).find("nowhere"), std::string::npos);
        EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), std::to_string(run));
        EXPECT_EQ(statement->get_PendingCount(), 0u);
        EXPECT_EQ(Utf8(statement->get_CurrentSql()), Utf8(statement->get_SqlText()));
    }
}

TEST_F(ExecutionTest, TryExecuteAllCountsEveryStatement) {
    auto statement = Make("SELECT 1; SELECT 2; INSERT INTO seen VALUES ('a', 'b')");
    for (int run = 0; run < 2; ++run) {
        const auto outcome = statement->TryExecuteAll();
        EXPECT_EQ(outcome.statements_executed, 3u);
        EXPECT_EQ(outcome.error_code, 0u);
        EXPECT_TRUE(outcome.error_message.isEmpty());
    }
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "2");
}

TEST_F(ExecutionTest, AnExecutionErrorCarriesDuckDBsText) {
    auto statement = Prepared("SELECT CAST($1 AS INTEGER)");
    statement->BindVarchar(1, Text("no number"));
    const Thrown thrown = Catch([&] { statement->Execute(); });
    EXPECT_EQ(thrown.exception, "xDuckDBError");
    EXPECT_EQ(thrown.code, 0x72501u);
    EXPECT_EQ(thrown.name, ":memory:");
    EXPECT_NE(thrown.message.find("no number"), std::string::npos) << thrown.message;
    EXPECT_EQ(thrown.message.front(), '{') << thrown.message;
    // It can be executed again with a valid value.
    statement->BindVarchar(1, Text("42"));
    EXPECT_EQ(statement->Execute(), 0);
}

TEST_F(ExecutionTest, AMissingParameterIsAnExecutionError) {
    auto statement = Prepared("SELECT $1, $2");
    statement->BindInteger(1, 1);
    const Thrown thrown = Catch([&] { statement->Execute(); });
    EXPECT_NE(thrown.message.find("Values were not provided"), std::string::npos) << thrown.message;
}

TEST_F(ExecutionTest, TheClientCursorMovesBackwards) {
    auto statement = Prepared("SELECT range FROM range(3)");
    auto cursor = statement->OpenCursor(1);
    ASSERT_NE(cursor, nullptr);
    EXPECT_EQ(cursor->get_RecordCount(), 3u);
    EXPECT_TRUE(cursor->LastRecord());
    EXPECT_TRUE(cursor->PrevRecord());
    EXPECT_EQ(cursor->get_Value(0)->get_LLong(), 1);
}

TEST_F(ExecutionTest, EveryOtherCursorIsForwardOnly) {
    for (const uint32_t location : {0u, 2u, 77u}) {
        auto statement = Prepared("SELECT range FROM range(3)");
        auto cursor = statement->OpenCursor(location);
        ASSERT_NE(cursor, nullptr);
        EXPECT_TRUE(cursor->NextRecord());
        EXPECT_EQ(Catch([&] { cursor->PrevRecord(); }),
                  MemoryError("PrevRecord() is not supported for server-side cursors"));
    }
}

TEST_F(ExecutionTest, AFurtherExecutionDoesNotDisturbTheCursor) {
    auto statement = Prepared("SELECT range FROM range($1)");
    statement->BindInteger(1, 3);
    auto cursor = statement->OpenCursor(2);
    EXPECT_TRUE(cursor->NextRecord());
    statement->BindInteger(1, 1);
    EXPECT_EQ(statement->Execute(), 0);
    auto second = statement->OpenCursor(1);
    EXPECT_EQ(second->get_RecordCount(), 1u);
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_EQ(cursor->get_Value(0)->get_LLong(), 2);
    EXPECT_FALSE(cursor->NextRecord());
}

TEST_F(ExecutionTest, TheCursorOutlivesTheStatement) {
    auto statement = Prepared("SELECT 'still here'");
    auto cursor = statement->OpenCursor(2);
    statement.reset();
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_EQ(Utf8(cursor->get_Value(0)->get_Text()), "still here");
}

TEST_F(ExecutionTest, ExecuteToJSONReturnsTheRows) {
    auto statement = Prepared("SELECT range AS n, 'x' || range AS t FROM range(2)");
    EXPECT_EQ(Utf8(statement->ExecuteToJSON()), R"([{"n":0,"t":"x0"},{"n":1,"t":"x1"}])");
}

TEST_F(ExecutionTest, ExecuteToQueryResultReportsChangedRowsOrHoldsACursor) {
    auto changed = Prepared("INSERT INTO seen VALUES ('a', 'b'), ('c', 'd')")->ExecuteToQueryResult(1);
    ASSERT_NE(changed, nullptr);
    EXPECT_EQ(changed->get_Flags(), uint32_t{nbx::mrsql::kHasRowsChanged});
    EXPECT_EQ(changed->get_RowsChanged(), 2);
    EXPECT_EQ(changed->get_Cursor(), nullptr);
    EXPECT_EQ(changed->NextResult(), nullptr);

    auto rows = Prepared("SELECT 1 UNION ALL SELECT 2")->ExecuteToQueryResult(1);
    EXPECT_EQ(rows->get_Flags(), uint32_t{nbx::mrsql::kHasCursor});
    EXPECT_EQ(rows->get_Cursor()->get_RecordCount(), 2u);
}

TEST_F(ExecutionTest, ExecuteToQueryResultWithoutAPreparedStatementIsEmpty) {
    auto result = Make("SELECT 1")->ExecuteToQueryResult(2);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->get_Flags(), 0u);
    EXPECT_EQ(result->get_Cursor(), nullptr);
    EXPECT_EQ(result->get_RowsChanged(), 0);
}

TEST_F(ExecutionTest, ClearBindingsForgetsEverything) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, 'x')");
    statement->put_Parameters(Row({Long(1)}));
    statement->ClearBindings();
    EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("Values were not provided"),
              std::string::npos);
    statement->put_ParameterRows(Rows({Row({Long(1)}), Row({Long(2)})}));
    statement->ClearBindings();
    EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("Values were not provided"),
              std::string::npos);
    statement->BindInteger(1, 3);
    statement->ClearBindings();
    EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("Values were not provided"),
              std::string::npos);
    Make("SELECT 1")->ClearBindings();
}

TEST_F(ExecutionTest, StoredParametersAreBoundAfreshByEveryExecution) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, 'x')");
    auto row = Row({Long(1)});
    statement->put_Parameters(row);
    statement->Execute();
    row->put_Item(0, Long(2));
    statement->Execute();
    EXPECT_EQ(Direct("SELECT type FROM seen"), (Table{{"1"}, {"2"}}));
    EXPECT_EQ(row->get_RefsCount(), 2u);
    statement->put_Parameters(nullptr);
    EXPECT_EQ(row->get_RefsCount(), 1u);
}

TEST_F(ExecutionTest, AnEmptyParameterSetClearsWhatWasBound) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, 'x')");
    statement->BindInteger(1, 3);
    statement->put_Parameters(Row({}));
    EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("Values were not provided"),
              std::string::npos);
}

TEST_F(ExecutionTest, TooManyParametersAreAnErrorWithTheDatabasesPath) {
    auto statement = Prepared("INSERT INTO seen VALUES ($1, 'x')");
    EXPECT_EQ(
        Catch([&] {
            statement->put_Parameters(Row({Long(1), Long(2)}));
        }),
        MemoryError(
            "Invalid Input Error: Can not bind to parameter number 2, statement only has 1 parameter(s)"));
}

TEST_F(ExecutionTest, TryExecuteAllAdmitsOtherThreadsBetweenTwoStatements) {
    std::string script;
    constexpr uint32_t kStatements = 500;
    for (uint32_t i = 0; i < kStatements; ++i) {
        script += "SELECT " + std::to_string(i) + ";";
    }
    auto statement = Make(script);
    std::atomic<bool> is_over{false};
    std::atomic<bool> was_between{false};
    std::thread visitor([&] {
        while (!is_over && !was_between) {
            {
                EngineLockScope lock;
                const uint64_t pending = statement->get_PendingCount();
                was_between = pending > 0 && pending < kStatements;
            }
            // A mutex does not let threads in by turns: without a pause, the script might never begin.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    // For the same reason the visitor may miss all gaps of one run.
    constexpr int kMostRuns = 200;
    for (int run = 0; run < kMostRuns && !was_between; ++run) {
        EXPECT_EQ(statement->TryExecuteAll().statements_executed, kStatements);
    }
    is_over = true;
    visitor.join();
    EXPECT_TRUE(was_between);
}

TEST_F(ExecutionTest, ExecuteAllExcludesOtherThreadsToTheEnd) {
    std::string script;
    for (int i = 0; i < 200; ++i) {
        script += "SELECT " + std::to_string(i) + ";";
    }
    auto statement = Make(script);
    std::atomic<bool> is_started{false};
    std::atomic<bool> has_entered{false};
    std::thread visitor;
    {
        EngineLockScope lock;
        visitor = std::thread([&] {
            is_started = true;
            EngineLockScope inner;
            has_entered = true;
        });
        while (!is_started) {
            std::this_thread::yield();
        }
        statement->ExecuteAll();
        EXPECT_FALSE(has_entered);
    }
    visitor.join();
}

TEST_F(ExecutionTest, ADatabaseClosedBetweenTwoStatementsEndsTheRunWithAnError) {
    std::string script = "CREATE TABLE started (a INTEGER);";
    for (int i = 0; i < 100000; ++i) {
        script += "SELECT 1;";
    }
    auto statement = Make(script);
    std::atomic<bool> is_done{false};
    std::thread closer([&] {
        // Closed as soon as the run releases the lock.
        while (!is_done) {
            EngineLockScope lock;
            if (statement->get_PendingCount() > 0) {
                database_->Close();
                is_done = true;
            }
        }
    });
    const auto outcome = statement->TryExecuteAll();
    is_done = true;
    closer.join();
    EXPECT_EQ(outcome.error_code, 0x72501u);
    EXPECT_EQ(Utf8(outcome.error_message), "DuckDBDatabase is invalid");
    EXPECT_GE(outcome.statements_executed, 1u);
    EXPECT_LT(outcome.statements_executed, 100001u);
}

}  // namespace mduckdb::test
