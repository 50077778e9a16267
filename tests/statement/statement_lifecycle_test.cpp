#include "objects/statement.h"
#include "statement_fixture.h"
#include "support/expected_by_version.h"

namespace mduckdb::test {

using LifecycleTest = StatementTest;

TEST_F(LifecycleTest, ANewStatementHasTheWholeTextAndNothingPending) {
    auto statement = Make("SELECT 1; SELECT 2");
    EXPECT_EQ(Utf8(statement->get_SqlText()), "SELECT 1; SELECT 2");
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), "SELECT 1; SELECT 2");
    EXPECT_EQ(statement->get_PendingCount(), 0u);
    EXPECT_EQ(statement->get_Database().get(), database_.get());
    EXPECT_EQ(statement->get_RefsCount(), 1u);
}

TEST_F(LifecycleTest, ReferencesAreCountedAndTheLastOneDestroysTheStatement) {
    auto statement = Make("SELECT 1");
    EXPECT_EQ(statement->AddRef(), 2u);
    EXPECT_EQ(statement->Release(), 1u);
    I_DuckDBStatement* raw = statement.get();
    statement.reset();
    // It is no longer in the list either: there is nothing left to remove.
    EXPECT_EQ(Catch([&] { database_->RemoveStatement(raw); }),
              MemoryError("DuckDBStatement does not belong to this database"));
}

TEST_F(LifecycleTest, QueryInterfaceReturnsTheStatementAndThePlugInBase) {
    auto statement = Make("SELECT 1");
    EXPECT_EQ(statement->QueryInterface(407), statement.get());
    auto* plug_in = static_cast<nbx::ForeignPlugin_imp*>(static_cast<DuckDBStatement*>(statement.get()));
    EXPECT_EQ(statement->QueryInterface(608), plug_in);
    EXPECT_EQ(statement->QueryInterface(1), nullptr);
    EXPECT_EQ(statement->QueryInterface(0), nullptr);
}

TEST_F(LifecycleTest, GetDatabaseReturnsItsOwnReference) {
    auto statement = Make("SELECT 1");
    const uint32_t before = database_->get_RefsCount();
    {
        auto database = statement->get_Database();
        EXPECT_EQ(database_->get_RefsCount(), before + 1);
    }
    EXPECT_EQ(database_->get_RefsCount(), before);
}

TEST_F(LifecycleTest, PreparingCountsThePendingStatementsDown) {
    auto statement = Make("SELECT 1; SELECT 2; SELECT 3");
    statement->PrepareNext();
    EXPECT_EQ(statement->get_PendingCount(), 2u);
    statement->PrepareNext();
    EXPECT_EQ(statement->get_PendingCount(), 1u);
    statement->PrepareNext();
    EXPECT_EQ(statement->get_PendingCount(), 0u);
    // After the end nothing is prepared.
    statement->PrepareNext();
    EXPECT_EQ(statement->get_PendingCount(), 0u);
    EXPECT_EQ(statement->OpenCursor(2), nullptr);
}

TEST_F(LifecycleTest, CurrentSqlIsTheTextOfTheStatementPreparedLast) {
    auto statement = Make("CREATE TABLE t (a INTEGER); INSERT INTO t VALUES (1); SELECT 'ä' FROM t");
    statement->PrepareNext();
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), "CREATE TABLE t (a INTEGER)");
    statement->Execute();
    statement->PrepareNext();
    const std::string blank = get_ExpectedByVersion().blank_before_statement;
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), blank + "INSERT INTO t VALUES (1)");
    statement->Execute();
    statement->PrepareNext();
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), blank + "SELECT 'ä' FROM t");
    EXPECT_EQ(Utf8(statement->get_SqlText()),
              "CREATE TABLE t (a INTEGER); INSERT INTO t VALUES (1); SELECT 'ä' FROM t");
}

TEST_F(LifecycleTest, AFailedExtractionIsReportedAndLeavesNothingExtracted) {
    auto statement = Make("SELEC 1");
    for (int attempt = 0; attempt < 2; ++attempt) {
        const Thrown thrown = Catch([&] { statement->PrepareNext(); });
        EXPECT_EQ(thrown.exception, "xDuckDBError");
        EXPECT_EQ(thrown.code, 0x72501u);
        EXPECT_EQ(thrown.name, ":memory:");
        EXPECT_NE(thrown.message.find("syntax error"), std::string::npos) << thrown.message;
        EXPECT_EQ(statement->get_PendingCount(), 0u);
    }
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), "SELEC 1");
}

TEST_F(LifecycleTest, AFailedPrepareIsTriedAgainWithTheSameStatement) {
    auto statement = Make("SELECT 1; INSERT INTO later VALUES (1); SELECT 3");
    EXPECT_TRUE(statement->ExecuteNext());
    for (int attempt = 0; attempt < 3; ++attempt) {
        const Thrown thrown = Catch([&] { statement->PrepareNext(); });
        EXPECT_EQ(thrown.exception, "xDuckDBError");
        EXPECT_EQ(thrown.name, ":memory:");
        EXPECT_NE(thrown.message.find("later"), std::string::npos) << thrown.message;
        EXPECT_EQ(statement->get_PendingCount(), 2u);
        EXPECT_NE(Utf8(statement->get_CurrentSql()).find("INSERT INTO later"), std::string::npos);
        // Neither a prepared statement nor a result is left.
        EXPECT_EQ(statement->OpenCursor(2), nullptr);
    }
    Direct("CREATE TABLE later (a INTEGER)");
    int64_t rows_changed = 0;
    EXPECT_TRUE(statement->ExecuteNext(rows_changed));
    EXPECT_EQ(rows_changed, 1);
    EXPECT_FALSE(statement->ExecuteNext());
    EXPECT_EQ(Utf8(statement->get_CurrentSql()), get_ExpectedByVersion().blank_before_statement + "SELECT 3");
    EXPECT_EQ(Scalar("SELECT count(*) FROM later"), "1");
}

TEST_F(LifecycleTest, AStoredParameterThatCannotBeBoundLeavesTheStatementToBeTriedAgain) {
    auto statement = Make("SELECT 1; INSERT INTO seen VALUES ($1, 'x')");
    statement->ExecuteNext();
    statement->put_Parameters(nullptr);
    auto two = Row({Str("a"), Str("b")});
    EXPECT_EQ(Catch([&] { statement->put_Parameters(two); }).exception, "xDuckDBError");
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_NE(Catch([&] { statement->PrepareNext(); }).message.find("parameter number 2"),
                  std::string::npos);
        EXPECT_EQ(statement->get_PendingCount(), 1u);
    }
    statement->put_Parameters(Row({Str("a")}));
    EXPECT_FALSE(statement->ExecuteNext());
    EXPECT_EQ(Scalar("SELECT type FROM seen"), "a");
}

TEST_F(LifecycleTest, StoredParametersAreBoundWhenTheNextStatementIsPrepared) {
    auto statement = Make("INSERT INTO seen VALUES ($1, 'first'); INSERT INTO seen VALUES ($1, 'second')");
    statement->put_Parameters(Row({Long(7)}));
    statement->ExecuteAll();
    EXPECT_EQ(Direct("SELECT * FROM seen ORDER BY text"), (Table{{"7", "first"}, {"7", "second"}}));
}

TEST_F(LifecycleTest, ParameterRowsAreNotBoundByPreparing) {
    // A row that is too long for the statement: preparing ignores it, executing does not.
    auto statement = Make("INSERT INTO seen VALUES ($1, 'x')");
    statement->put_ParameterRows(Rows({Row({Long(1), Long(2)})}));
    EXPECT_EQ(Catch([&] { statement->PrepareNext(); }), Thrown{});
    EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("parameter number 2"), std::string::npos);
}

TEST_F(LifecycleTest, DetachReleasesTheDatabaseAndAllDuckDBObjects) {
    auto statement = Prepared("SELECT 1; SELECT 2");
    statement->Execute();
    statement->Detach();
    EXPECT_EQ(statement->get_Database(), nullptr);
    EXPECT_EQ(statement->get_PendingCount(), 0u);
    EXPECT_EQ(Catch([&] { statement->Execute(); }), kDatabaseIsInvalid);
    statement->Detach();
    // A detached statement is still in the list and leaves it when it is destroyed.
    statement.reset();
    database_->Close();
    EXPECT_FALSE(database_->get_IsOpen());
}

TEST_F(LifecycleTest, EveryOperationAfterTheDatabaseClosedReportsThatItIsInvalid) {
    auto statement = Prepared("SELECT $1");
    database_->Close();
    const auto expect_invalid = [&](const char* what, auto&& call) {
        EXPECT_EQ(Catch(call), kDatabaseIsInvalid) << what;
    };
    int64_t rows = 0;
    expect_invalid("PrepareNext", [&] { statement->PrepareNext(); });
    expect_invalid("ExecuteNext", [&] { statement->ExecuteNext(); });
    expect_invalid("ExecuteNext(rows)", [&] { statement->ExecuteNext(rows); });
    expect_invalid("ExecuteAll", [&] { statement->ExecuteAll(); });
    expect_invalid("ClearBindings", [&] { statement->ClearBindings(); });
    expect_invalid("BindNull", [&] { statement->BindNull(1); });
    expect_invalid("BindValue", [&] { statement->BindValue(1, Long(1)); });
    expect_invalid("put_Parameters", [&] { statement->put_Parameters(Row({Long(1)})); });
    expect_invalid("put_ParameterRows", [&] { statement->put_ParameterRows(Rows({Row({Long(1)})})); });
    expect_invalid("Execute", [&] { statement->Execute(); });
    expect_invalid("OpenCursor", [&] { statement->OpenCursor(1); });
    expect_invalid("ExecuteToJSON", [&] { statement->ExecuteToJSON(); });
    expect_invalid("ExecuteToQueryResult", [&] { statement->ExecuteToQueryResult(1); });
    EXPECT_EQ(statement->get_Database(), nullptr);
    EXPECT_EQ(statement->get_PendingCount(), 0u);
    EXPECT_EQ(Utf8(statement->get_SqlText()), "SELECT $1");

    const auto outcome = statement->TryExecuteAll();
    EXPECT_EQ(outcome.statements_executed, 0u);
    EXPECT_EQ(outcome.error_code, 0u);
    EXPECT_TRUE(outcome.error_message.isEmpty());
}

TEST_F(LifecycleTest, AStatementMayOutliveItsDatabase) {
    auto statement = Prepared("SELECT 1");
    statement->Execute();
    database_->Close();
    database_ = nbx::MakeObject<DuckDBDatabase>(nbx::CreateLocation(Text(":memory:")));
    EXPECT_EQ(Catch([&] { statement->Execute(); }), kDatabaseIsInvalid);
    statement.reset();
}

TEST_F(LifecycleTest, StatementsOfOneDatabaseDoNotDisturbOneAnother) {
    auto first = Prepared("INSERT INTO seen VALUES ('first', $1)");
    auto second = Prepared("INSERT INTO seen VALUES ('second', $1)");
    first->BindInteger(1, 1);
    second->BindInteger(1, 2);
    second->Execute();
    first->Execute();
    EXPECT_EQ(Direct("SELECT * FROM seen ORDER BY type"), (Table{{"first", "1"}, {"second", "2"}}));
}

// DuckDB would silently run only the text before the NUL.
TEST_F(LifecycleTest, TextWithANulCharacterIsRejectedWholeAndRunsNothing) {
    database_->SqlExecute(Text("CREATE TABLE t AS SELECT 1 AS a"), nullptr);
    auto statement = Make(std::string_view("DELETE FROM t\0 WHERE a = 2", 26));
    EXPECT_EQ(Catch([&] { statement->PrepareNext(); }),
              MemoryError("SQL text must not contain NUL characters"));
    EXPECT_EQ(database_->SqlExecute(Text("DELETE FROM t"), nullptr), 1);
}

TEST_F(LifecycleTest, AStatementRemovedFromItsDatabaseOutlivesIt) {
    auto database = nbx::MakeObject<DuckDBDatabase>(nbx::CreateLocation(Text(":memory:")));
    database->Open();
    auto statement = database->CreateStatement(Text("SELECT 1"));
    database->RemoveStatement(statement.get());
    database.reset();
    EXPECT_EQ(Catch([&] { statement->PrepareNext(); }), kDatabaseIsInvalid);
    EXPECT_EQ(statement->get_Database(), nullptr);
}

}  // namespace mduckdb::test
