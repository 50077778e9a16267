// Statements that DuckDB expands into several: run as one, and undone when one of the pieces fails.

#include "nbx/mrsql/duckdb_written_statements.h"

#include <atomic>
#include <thread>

#include "nbx/hooks.h"
#include "statement_fixture.h"
#include "support/expected_by_version.h"

namespace mduckdb::test {
namespace {

using nbx::mrsql::I_DuckDBTransactionState;
using nbx::mrsql::I_DuckDBWrittenStatements;

constexpr const char* kExpanded = "ALTER TABLE t ADD COLUMN d TIMESTAMP DEFAULT now()";
/** Fails in its third piece, when the existing rows get the default. */
constexpr const char* kFailing = "ALTER TABLE t ADD COLUMN d INTEGER DEFAULT (error('boom')::INTEGER)";
/** Fails in its second piece, which cannot be prepared; as one statement it fails while it runs. */
constexpr const char* kUnpreparable = "ALTER TABLE missing ADD COLUMN d TIMESTAMP DEFAULT now()";

class WrittenStatements : public StatementTest {
  protected:
    WrittenStatements() { Direct("CREATE TABLE t AS SELECT 1 AS i"); }

    I_DuckDBWrittenStatements& Written(I_DuckDBStatement& statement) {
        return *static_cast<I_DuckDBWrittenStatements*>(
            statement.QueryInterface(nbx::mrsql::kDuckDBWrittenStatementsInterfaceId));
    }
    I_DuckDBTransactionState& State() {
        return *static_cast<I_DuckDBTransactionState*>(
            database_->QueryInterface(nbx::mrsql::kDuckDBTransactionStateInterfaceId));
    }
    static bool ExpandsWhenSplit() { return get_ExpectedByVersion().expands_when_split; }
    bool IsInTransaction() { return State().get_IsInTransaction(); }
    std::string ColumnsOfT() { return Scalar("SELECT string_agg(name, ',') FROM pragma_table_info('t')"); }
};

TEST_F(WrittenStatements, ATextThatDuckDBExpandsStepsThroughItsPiecesWhileSomeArePending) {
    auto statement = Make(kExpanded);
    do {
        statement->PrepareNext();
        statement->Execute();
    } while (statement->get_PendingCount() > 0);
    EXPECT_FALSE(IsInTransaction());
    EXPECT_EQ(ColumnsOfT(), "i,d");
}

TEST_F(WrittenStatements, OneStepOfATextThatDuckDBExpandsLeavesATransactionThatClosingReports) {
    auto statement = Make(kExpanded);
    statement->PrepareNext();
    statement->Execute();
    EXPECT_EQ(IsInTransaction(), ExpandsWhenSplit());
    EXPECT_EQ(State().get_LostTransactionCount(), 0u);
    database_->Close();
    EXPECT_FALSE(IsInTransaction());
    const uint64_t lost = ExpandsWhenSplit() ? 1 : 0;
    EXPECT_EQ(State().get_LostTransactionCount(), lost);
    database_->Open();
    database_->Close();
    EXPECT_EQ(State().get_LostTransactionCount(), lost);
}

TEST_F(WrittenStatements, AnAlterTableRunsAsOne) {
    auto statement = Make(std::string(kExpanded) + "; INSERT INTO t(i) VALUES (2), (3)");
    I_DuckDBWrittenStatements& written = Written(*statement);
    int64_t changed = 0;
    EXPECT_EQ(written.get_PieceCount() > 1, ExpandsWhenSplit());
    EXPECT_TRUE(written.ExecuteNextWritten(changed));
    EXPECT_FALSE(IsInTransaction());
    EXPECT_EQ(ColumnsOfT(), "i,d");
    EXPECT_EQ(written.get_PieceCount(), 1u);
    EXPECT_FALSE(written.ExecuteNextWritten(changed));
    EXPECT_EQ(changed, 2);
    EXPECT_EQ(written.get_PieceCount(), 0u);
    EXPECT_EQ(Scalar("SELECT count(d) FROM t"), "3");
}

TEST_F(WrittenStatements, CopyingADatabaseRunsAsOne) {
    Direct("ATTACH ':memory:' AS other");
    auto statement = Make("COPY FROM DATABASE memory TO other");
    int64_t changed = 0;
    EXPECT_FALSE(Written(*statement).ExecuteNextWritten(changed));
    EXPECT_FALSE(IsInTransaction());
    EXPECT_EQ(Scalar("SELECT i FROM other.t"), "1");
}

TEST_F(WrittenStatements, APivotWithoutInOpensOneCursor) {
    Direct("CREATE TABLE p AS SELECT * FROM (VALUES ('a', 1), ('b', 2)) v(k, n)");
    auto statement = Make("PIVOT p ON k USING sum(n)");
    const auto cursor = Written(*statement).OpenNextWritten(nbx::mrsql::kServerCursor);
    ASSERT_TRUE(cursor);
    EXPECT_EQ(cursor->get_ColumnCount(), 2u);
    ASSERT_TRUE(cursor->NextRecord());
    EXPECT_FALSE(cursor->NextRecord());
}

TEST_F(WrittenStatements, StoredParametersAreBoundToThePiecesThatHaveThem) {
    Direct("CREATE TABLE p AS SELECT * FROM (VALUES ('a', 1), ('b', 2)) v(k, n)");
    auto statement = Make(std::string(kExpanded) + "; INSERT INTO t(i) VALUES (?)");
    statement->put_Parameters(Row({Long(7)}));
    int64_t changed = 0;
    if (!ExpandsWhenSplit()) {
        // As one statement it has no parameters, and is refused like any other without them.
        EXPECT_NE(Catch([&] { Written(*statement).ExecuteNextWritten(changed); }).message.find("0 parameter"),
                  std::string::npos);
        return;
    }
    EXPECT_TRUE(Written(*statement).ExecuteNextWritten(changed));
    EXPECT_FALSE(Written(*statement).ExecuteNextWritten(changed));
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(Scalar("SELECT max(i) FROM t"), "7");
}

TEST_F(WrittenStatements, APieceThatFailsLeavesNoTransactionOpenAndTheNextStatementRuns) {
    auto statement = Make(std::string(kFailing) + "; INSERT INTO t VALUES (2)");
    EXPECT_NE(Catch([&] {
                  while (statement->ExecuteNext()) {
                  }
              }).message.find("boom"),
              std::string::npos);
    EXPECT_FALSE(IsInTransaction());
    EXPECT_EQ(ColumnsOfT(), "i");
    EXPECT_FALSE(statement->ExecuteNext()) << "what follows is the next written statement";
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "2");
}

TEST_F(WrittenStatements, APieceThatFailsLeavesNoTransactionOpenInARunThatReports) {
    auto statement = Make(kFailing);
    EXPECT_NE(statement->TryExecuteAll().error_code, 0u);
    EXPECT_FALSE(IsInTransaction());
    EXPECT_EQ(Catch([&] { database_->SqlExecute(Text("INSERT INTO t VALUES (2)"), nullptr); }), Thrown{});
}

TEST_F(WrittenStatements, APieceThatCannotBePreparedLeavesNoTransactionOpenAndIsTriedFromTheStart) {
    auto statement = Make(kUnpreparable);
    EXPECT_EQ(Catch([&] { statement->ExecuteAll(); }).code, 0x72501u);
    EXPECT_FALSE(IsInTransaction());
    Direct("CREATE TABLE missing AS SELECT 1 AS i");
    if (!ExpandsWhenSplit()) {
        // What follows a statement that failed while it ran is the next one, which is the first one again.
        statement->ExecuteAll();
    }
    statement->ExecuteAll();
    EXPECT_FALSE(IsInTransaction());
    EXPECT_EQ(Scalar("SELECT count(d) FROM missing"), "1");
}

TEST_F(WrittenStatements, AScriptWhosePieceFailsLeavesNoTransactionOpen) {
    for (const char* sql : {kFailing, kUnpreparable}) {
        EXPECT_EQ(Catch([&] { database_->SqlExecute(Text(sql), nullptr); }).code, 0x72501u) << sql;
        EXPECT_FALSE(IsInTransaction()) << sql;
        database_->SqlExecute(Text("INSERT INTO t VALUES (2)"), nullptr);
    }
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "3");
}

TEST_F(WrittenStatements, ATransactionOfTheUserStaysWhenAPieceCannotBePrepared) {
    database_->SqlExecute(Text("BEGIN; INSERT INTO t VALUES (2)"), nullptr);
    EXPECT_EQ(Catch([&] { database_->SqlExecute(Text("SELECT * FROM missing"), nullptr); }).code, 0x72501u);
    EXPECT_TRUE(IsInTransaction());
    auto statement = Make(kUnpreparable);
    EXPECT_EQ(Catch([&] { statement->ExecuteAll(); }).code, 0x72501u);
    EXPECT_TRUE(IsInTransaction());
    database_->SqlExecute(Text("ROLLBACK"), nullptr);
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "1");
}

TEST_F(WrittenStatements, AnInterruptDuringAPreparationIsAnInterruption) {
    auto* const before = nbx::mrsql::gpIsLocalSqlCall_PTR;
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    // Enough work in the binding that interrupts arrive during it.
    std::string sql = "SELECT 1";
    for (int i = 0; i < 60; ++i) {
        sql += ", (SELECT count(*) FROM t WHERE i = " + std::to_string(i) + ")";
    }
    std::atomic<bool> is_over{false};
    std::thread other([&] {
        while (!is_over) {
            database_->Interrupt();
            std::this_thread::yield();
        }
    });
    int interrupted = 0;
    for (int i = 0; i < 150; ++i) {
        const Thrown thrown = Catch([&] { Make(sql)->PrepareNext(); });
        EXPECT_TRUE(thrown.exception.empty() || thrown.exception == "xInterruptError") << thrown;
        interrupted += thrown.exception.empty() ? 0 : 1;
    }
    is_over = true;
    other.join();
    EXPECT_GT(interrupted, 0);
    nbx::mrsql::gpIsLocalSqlCall_PTR = before;
}

TEST_F(WrittenStatements, AnInterruptThatCameBeforeAPreparationIsForgotten) {
    auto* const before = nbx::mrsql::gpIsLocalSqlCall_PTR;
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    database_->Interrupt();
    EXPECT_EQ(Catch([&] { Make("SELECT * FROM missing")->PrepareNext(); }).exception, "xDuckDBError");
    nbx::mrsql::gpIsLocalSqlCall_PTR = before;
}

}  // namespace
}  // namespace mduckdb::test
