#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>
#include <vector>

#include "base/holders.h"
#include "database_test_base.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "nbx/mrsql/duckdb_written_statements.h"
#include "nbx/value.h"
#include "objects/database.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class DatabaseDeadline : public InterruptibleDatabaseTest {
  protected:
    static nbx::mrsql::I_DuckDBDeadlines& DeadlinesOf(nbx::mrsql::I_DuckDBDatabase& of) {
        return *static_cast<nbx::mrsql::I_DuckDBDeadlines*>(
            of.QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId));
    }
    static void Limit(nbx::mrsql::I_DuckDBDatabase& of, uint64_t milliseconds) {
        DeadlinesOf(of).put_TimeLimit(milliseconds);
    }
    static nbx::smart_ptr<nbx::ValueRow> Row(int64_t number) {
        auto row = nbx::MakeObject<nbx::ValueRow>();
        row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLLong(false, &number, nullptr)));
        return row;
    }
    static bool IsInTransaction(nbx::mrsql::I_DuckDBDatabase& of) {
        return static_cast<nbx::mrsql::I_DuckDBTransactionState*>(
                   of.QueryInterface(nbx::mrsql::kDuckDBTransactionStateInterfaceId))
            ->get_IsInTransaction();
    }
    std::string Cut(uint64_t milliseconds, const std::string& path = ":memory:") const {
        return Refusal(
            path, "The time limit of " + std::to_string(milliseconds) + " ms is over: the statement was cut");
    }
    /** The action is cut, not before its time, and the connection stays usable. */
    template <class F>
    void ExpectCut(uint64_t milliseconds, F&& action) {
        Limit(*database, milliseconds);
        const auto begun = Clock::now();
        EXPECT_EQ(Thrown(action), Cut(milliseconds));
        EXPECT_GE(Clock::now() - begun, std::chrono::milliseconds(milliseconds));
        Limit(*database, 0);
        EXPECT_EQ(QueryText(*database, "SELECT 42"), "42");
    }
};

TEST_F(DatabaseDeadline, IsNoneAtFirstAndSurvivesAClose) {
    EXPECT_EQ(DeadlinesOf(*database).get_TimeLimit(), 0u);
    Limit(*database, 1234);
    database->Close();
    database->Open();
    EXPECT_EQ(DeadlinesOf(*database).get_TimeLimit(), 1234u);
    Limit(*database, ~uint64_t{0});
    EXPECT_EQ(QueryText(*database, "SELECT 1"), "1");
}

TEST_F(DatabaseDeadline, CutsEveryKindOfCall) {
    const auto parameters = Row(1);
    const std::string with_parameter = kLongQuery + " WHERE a.range > ?";
    const auto statement = database->CreateStatement(S(kLongQuery));
    ExpectCut(30, [&] { Execute(*database, kLongQuery); });
    ExpectCut(30, [&] { database->SqlExecute(S(with_parameter), parameters); });
    ExpectCut(30, [&] { database->SqlQuery(S("SELECT 1;" + kLongQuery), 2, nullptr); });
    ExpectCut(30, [&] { database->SqlSelect(S(kLongQuery), nbx::mrsql::kServerCursor, nullptr); });
    ExpectCut(30, [&] { database->SqlSelect(S(kLongQuery), nbx::mrsql::kClientCursor, nullptr); });
    ExpectCut(30, [&] { statement->ExecuteAll(); });
    const auto next = database->CreateStatement(S(kLongQuery));
    next->PrepareNext();
    ExpectCut(30, [&] { next->Execute(); });
    ExpectCut(30, [&] { next->OpenCursor(nbx::mrsql::kServerCursor); });
    ExpectCut(30, [&] { next->ExecuteToQueryResult(nbx::mrsql::kClientCursor); });
    ExpectCut(30, [&] { next->ExecuteToJSON(); });
    Limit(*database, 30);
    const auto outcome = database->CreateStatement(S("SELECT 1; " + kLongQuery))->TryExecuteAll();
    EXPECT_EQ(outcome.statements_executed, 1u);
    EXPECT_EQ(outcome.error_code, 0x72501u);
    EXPECT_EQ(U(outcome.error_message), "The time limit of 30 ms is over: the statement was cut");
}

TEST_F(DatabaseDeadline, CountsAScriptAndAllRowsOfParametersAsOneCall) {
    std::string script;
    for (int i = 0; i < 5000; ++i) {
        script += "SELECT count(*) FROM range(20000);";
    }
    ExpectCut(100, [&] { Execute(*database, script); });
    Execute(*database, "CREATE TABLE t (i BIGINT)");
    const auto rows = nbx::MakeObject<nbx::ValueRows>();
    for (int i = 0; i < 100000; ++i) {
        rows->Append(Row(i));
    }
    const auto insert = database->CreateStatement(S("INSERT INTO t VALUES (?)"));
    insert->PrepareNext();
    insert->put_ParameterRows(rows);
    ExpectCut(100, [&] { insert->Execute(); });
    const std::string stored = QueryText(*database, "SELECT count(*) FROM t");
    EXPECT_NE(stored, "0");
    EXPECT_EQ(QueryText(*database, "SELECT max(i) + 1 FROM t"), stored) << "the rows before the cut";
}

TEST_F(DatabaseDeadline, CutsTheReadingOfAClientCursor) {
    const std::string rows = "SELECT range, range::VARCHAR FROM range(3000000)";
    ExpectCut(100, [&] { database->SqlSelect(S(rows), nbx::mrsql::kClientCursor, nullptr); });
}

TEST_F(DatabaseDeadline, LeavesTheRowsOfAServerCursorReadable) {
    Limit(*database, 2000);
    const auto cursor = database->SqlSelect(S("FROM range(100000)"), nbx::mrsql::kServerCursor, nullptr);
    Limit(*database, 1);
    std::this_thread::sleep_for(5ms);
    int count = 0;
    while (cursor->NextRecord()) {
        ++count;
    }
    EXPECT_EQ(count, 100000);
}

TEST_F(DatabaseDeadline, IsNoInterruptAndAnInterruptIsNoDeadline) {
    Limit(*database, 60'000);
    std::thread interrupter([&] {
        std::this_thread::sleep_for(100ms);
        database->Interrupt();
    });
    EXPECT_EQ(Thrown([&] { Execute(*database, kLongQuery); }), "xInterruptError 57501");
    interrupter.join();
    const std::string other = Thrown([&] { Execute(*database, "SELECT * FROM missing"); });
    EXPECT_EQ(other.find("xDuckDBError 72501"), 0u);
    EXPECT_EQ(other.find("time limit"), std::string::npos);
}

TEST_F(DatabaseDeadline, RollsBackAFailedScriptAndLeavesTheTransactionOfAStatement) {
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    Limit(*database, 50);
    EXPECT_EQ(Thrown([&] { Execute(*database, "BEGIN; INSERT INTO t VALUES (1);" + kLongQuery); }), Cut(50));
    EXPECT_FALSE(IsInTransaction(*database)) << "as after any other failure of a script";
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "0");
    Execute(*database, "BEGIN; INSERT INTO t VALUES (1)");
    const auto statement = database->CreateStatement(S(kLongQuery));
    EXPECT_EQ(Thrown([&] { statement->ExecuteNext(); }), Cut(50));
    EXPECT_TRUE(IsInTransaction(*database)) << "as after any other failure of a statement";
    Limit(*database, 0);
    Execute(*database, "ROLLBACK");
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "0");
}

TEST_F(DatabaseDeadline, DoesNotReachOtherObjectsOnTheSameEngine) {
    const Database limited = host.Created(Path());
    const Database other = host.Opened(Path());
    Execute(*other, "CREATE TABLE t AS FROM range(2000000)");
    std::filesystem::create_directory(folder / "backups");
    Limit(*limited, 5);
    std::atomic<bool> is_over = false;
    // The export of the other object runs beside the limited statements.
    std::thread exporter([&] {
        EXPECT_EQ(Thrown([&] { other->Backup(Location(folder / "backups")); }), "none");
        is_over = true;
    });
    int cut = 0;
    while (!is_over || cut == 0) {
        EXPECT_EQ(Thrown([&] { Execute(*limited, kLongQuery); }), Cut(5, Path()));
        ++cut;
    }
    exporter.join();
    EXPECT_GT(cut, 0);
}

TEST_F(DatabaseDeadline, CutsABackupAndASnapshot) {
    const Database file = host.Created(Path());
    Execute(*file, "CREATE TABLE t AS SELECT range AS i, md5(range::VARCHAR) AS t FROM range(1000000)");
    Limit(*file, 20);
    std::filesystem::create_directory(folder / "backups");
    EXPECT_EQ(Thrown([&] { file->Backup(Location(folder / "backups")); }), Cut(20, Path()));
    auto* const snapshots = static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
        file->QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId));
    EXPECT_EQ(Thrown([&] { snapshots->Snapshot(Location(Path("copy.db"))); }), Cut(20, Path()));
    Limit(*file, 0);
    EXPECT_EQ(QueryText(*file, "SELECT count(*) FROM t"), "1000000");
}

TEST_F(DatabaseDeadline, InTheMomentAtWhichAStatementEndsCutsNoLaterOne) {
    // About as long as the limit, on both sides of it.
    const std::string sql = "SELECT count(*) FROM range(600000) t(i) WHERE i % 7 = 3";
    int cut = 0;
    int whole = 0;
    for (uint64_t i = 0; i < 150; ++i) {
        Limit(*database, 1 + i % 6);
        const std::string thrown = Thrown([&] { QueryText(*database, sql); });
        (thrown == "none" ? whole : cut) += 1;
        EXPECT_TRUE(thrown == "none" || thrown == Cut(1 + i % 6)) << thrown;
        Limit(*database, 0);
        EXPECT_EQ(QueryText(*database, "SELECT sum(i) FROM range(30000) t(i)"), "449985000");
    }
    std::cout << cut << " cut, " << whole << " whole\n";
    EXPECT_GT(cut, 0);
}

// On a machine with other work: not much longer than an interrupt of DuckDB itself takes meanwhile.
TEST_F(DatabaseDeadline, IsKeptWithinFiftyMilliseconds) {
    constexpr auto kLimit = 10ms;
    constexpr double kMostMilliseconds = 50;
    const auto connection = dynamic_cast<mduckdb::DuckDBDatabase&>(*database).get_Link()->get_Connection();
    const auto measure = [&](const auto& run, std::vector<double>& overruns) {
        const auto begun = Clock::now();
        run();
        overruns.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begun - kLimit).count());
    };
    const auto percentile = [](std::vector<double>& overruns) {
        std::sort(overruns.begin(), overruns.end());
        return overruns[overruns.size() * 99 / 100 - 1];
    };
    std::vector<double> overruns;
    std::vector<double> bare;
    for (int i = 0; i < 200; ++i) {
        Limit(*database, 10);
        measure([&] { EXPECT_EQ(Thrown([&] { Execute(*database, kLongQuery); }), Cut(10)); }, overruns);
        measure(
            [&] {
                std::thread interrupter([&] {
                    std::this_thread::sleep_for(kLimit);
                    duckdb_interrupt(*connection);
                });
                mduckdb::ResultHolder result;
                EXPECT_EQ(duckdb_query(*connection, kLongQuery.c_str(), result.Receive()), DuckDBError);
                interrupter.join();
            },
            bare);
    }
    const double longest = percentile(overruns);
    const double longest_bare = percentile(bare);
    std::cout << "overrun of 200 deadlines in milliseconds: median " << overruns[100] << ", 99th percentile "
              << longest << ", of interrupts of DuckDB itself " << bare[100] << " and " << longest_bare
              << '\n';
    EXPECT_LE(longest, std::max(kMostMilliseconds, 2 * longest_bare));
}

}  // namespace
