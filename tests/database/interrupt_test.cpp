#include <atomic>
#include <chrono>
#include <thread>

#include "base/holders.h"
#include "database_test_base.h"
#include "nbx/hooks.h"
#include "objects/database.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class DatabaseInterrupt : public InterruptibleDatabaseTest {
  protected:
    /** Interrupts a running query; returns its exception and how long the query took to stop. */
    std::string InterruptLongQuery(Clock::duration& latency) {
        Clock::time_point interrupted;
        std::thread interrupter([&] {
            std::this_thread::sleep_for(200ms);
            interrupted = Clock::now();
            database->Interrupt();
        });
        std::string thrown = Thrown([&] { Execute(*database, kLongQuery); });
        const auto ended = Clock::now();
        interrupter.join();
        latency = ended - interrupted;
        return thrown;
    }
};

TEST_F(DatabaseInterrupt, StopsARunningStatementQuicklyAndOnce) {
    for (int i = 0; i < 3; ++i) {
        Clock::duration latency{};
        EXPECT_EQ(InterruptLongQuery(latency), "xInterruptError 57501");
        EXPECT_LT(latency, 100ms);
    }
    EXPECT_EQ(Thrown([&] { Execute(*database, "SELECT * FROM missing"); }).find("xDuckDBError 72501"), 0u);
    EXPECT_EQ(QueryText(*database, "SELECT 1"), "1");
}

TEST_F(DatabaseInterrupt, WithoutTheHookDoesNothing) {
    nbx::mrsql::gpIsLocalSqlCall_PTR = nullptr;
    database->Interrupt();
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_interrupt"), 0u);
}

TEST_F(DatabaseInterrupt, OfALocalCallNeedsPermission) {
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
    nbx::mrsql::SetLocalSqlCancellationAllowed(false);
    database->Interrupt();
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_interrupt"), 0u);
    nbx::mrsql::SetLocalSqlCancellationAllowed(true);
    database->Interrupt();
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_interrupt"), 1u);
}

TEST_F(DatabaseInterrupt, OfARemoteCallNeedsNone) {
    nbx::mrsql::SetLocalSqlCancellationAllowed(false);
    database->Interrupt();
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_interrupt"), 1u);
}

TEST_F(DatabaseInterrupt, OnAClosedDatabaseDoesNothingAndIsForgotten) {
    database->Close();
    database->Interrupt();
    database->Open();
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_interrupt"), 0u);
    EXPECT_EQ(
        Thrown([&] { dynamic_cast<mduckdb::DuckDBDatabase&>(*database).get_Link()->ThrowIfInterrupted(); }),
        "none");
}

TEST_F(DatabaseInterrupt, WhileNothingRunsReachesNoLaterCall) {
    constexpr const char* kFailing = "SELECT * FROM missing";
    database->Interrupt();
    EXPECT_EQ(Thrown([&] { Execute(*database, "SELECT 1"); }), "none");
    database->Interrupt();
    EXPECT_EQ(Thrown([&] { Execute(*database, kFailing); }).find("xDuckDBError"), 0u);
    database->Interrupt();
    EXPECT_EQ(Thrown([&] { database->CreateStatement(S(kFailing))->PrepareNext(); }).find("xDuckDBError"),
              0u);
    const auto statement = database->CreateStatement(S("SELECT 1; SELECT 2"));
    database->Interrupt();
    EXPECT_EQ(Thrown([&] { statement->PrepareNext(); }), "none");
    database->Interrupt();
    EXPECT_EQ(Thrown([&] { statement->Execute(); }), "none");
    database->Interrupt();
    EXPECT_EQ(Thrown([&] { statement->ExecuteAll(); }), "none");
    const auto first = database->SqlQuery(S("SELECT 1; SELECT 2"), nbx::mrsql::kClientCursor, nullptr);
    database->Interrupt();
    EXPECT_EQ(Thrown([&] { first->NextResult(); }), "none");
}

TEST_F(DatabaseInterrupt, BeforeDuckDBBeginsIsNotLost) {
    const mduckdb::EngineLockScope lock;
    auto& own = *dynamic_cast<mduckdb::DuckDBDatabase&>(*database).get_Link();
    const auto connection = own.get_Connection();
    mduckdb::PreparedHolder prepared;
    ASSERT_EQ(duckdb_prepare(*connection, kLongQuery.c_str(), prepared.Receive()), DuckDBSuccess);
    mduckdb::InterruptibleConnection interruptible;
    interruptible.Replace(connection);
    interruptible.Interrupt();
    mduckdb::ResultHolder result;
    const auto begun = Clock::now();
    EXPECT_EQ(interruptible.ExecutePrepared(prepared.get(), result.Receive()), DuckDBError);
    EXPECT_LT(Clock::now() - begun, 1s);
    EXPECT_NE(std::string(duckdb_result_error(result.get())).find("INTERRUPT"), std::string::npos);
    EXPECT_TRUE(interruptible.TakeInterrupted());
    EXPECT_FALSE(interruptible.TakeInterrupted());
}

TEST_F(DatabaseInterrupt, InAScriptOfShortStatementsEndsTheScript) {
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    std::string script;
    constexpr int kStatements = 20'000;
    for (int i = 0; i < kStatements; ++i) {
        script += "INSERT INTO t VALUES (1);";
    }
    std::atomic<bool> is_over{false};
    std::thread interrupter([&] {
        while (!is_over && duckdb_faults::CountCalls("duckdb_prepare_extracted_statement") < 10) {
            std::this_thread::yield();
        }
        database->Interrupt();
    });
    EXPECT_EQ(Thrown([&] { Execute(*database, script); }), "xInterruptError 57501");
    is_over = true;
    interrupter.join();
    EXPECT_LT(std::stoi(QueryText(*database, "SELECT count(*) FROM t")), kStatements);
    EXPECT_EQ(Thrown([&] { Execute(*database, "INSERT INTO t VALUES (2)"); }), "none");
}

TEST_F(DatabaseInterrupt, ExecutionReportsTheSameErrorTextsAsDuckDB) {
    const mduckdb::EngineLockScope lock;
    auto& own = *dynamic_cast<mduckdb::DuckDBDatabase&>(*database).get_Link();
    const auto connection = own.get_Connection();
    for (const char* sql : {"SELECT ?", "SELECT CAST('x' AS INTEGER)", "SELECT error('boom')",
                            "INSERT INTO (SELECT 1) VALUES (1)"}) {
        mduckdb::PreparedHolder prepared;
        if (duckdb_prepare(*connection, sql, prepared.Receive()) != DuckDBSuccess) {
            mduckdb::ResultHolder result;
            EXPECT_EQ(own.ExecutePrepared(prepared.get(), result.Receive()), DuckDBError) << sql;
            continue;
        }
        mduckdb::ResultHolder ours;
        mduckdb::ResultHolder theirs;
        EXPECT_EQ(own.ExecutePrepared(prepared.get(), ours.Receive()), DuckDBError) << sql;
        EXPECT_EQ(duckdb_execute_prepared(prepared.get(), theirs.Receive()), DuckDBError) << sql;
        EXPECT_STREQ(duckdb_result_error(ours.get()), duckdb_result_error(theirs.get())) << sql;
    }
    mduckdb::ResultHolder result;
    EXPECT_EQ(own.ExecutePrepared(nullptr, result.Receive()), DuckDBError);
}

TEST_F(DatabaseInterrupt, NeverTouchesAConnectionThatIsBeingReplacedOrClosed) {
    std::atomic<bool> is_over = false;
    std::thread interrupter([&] {
        while (!is_over) {
            database->Interrupt();
        }
    });
    for (int i = 0; i < 20; ++i) {
        database->Close();
        database->Open();
    }
    is_over = true;
    interrupter.join();
    EXPECT_EQ(QueryText(*database, "SELECT 1"), "1");
}

}  // namespace
