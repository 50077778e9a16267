#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "database_test_base.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "nbx/value.h"
#include "support/peak_memory.h"
#include "support/value_description.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Cursor = nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor>;

// Nobody waits for the end of it, and it has no row before.
const std::string kEndless = "SELECT count(*) FROM range(100000000) a, range(100000) b";
// Its rows come one after the other, for hours.
const std::string kEndlessRows = "SELECT i, 'row ' || i AS text FROM range(1000000000000) r(i)";
// Its first rows fill DuckDB's buffer (1 MB in version 1.5, 10 MiB in 2.0), so they are there at once; after
// them there is none for hours.
constexpr int64_t kRowsBeforeStall = 3'000'000;
const std::string kStalling = "SELECT i FROM range(1000000000000) r(i) WHERE i < 3000000 OR hash(i) = 1";

class DatabaseStream : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
        database = host.Created(Path());
    }
    void TearDown() override {
        database = nullptr;
        DatabaseTest::TearDown();
    }
    static Cursor Stream(nbx::mrsql::I_DuckDBDatabase& of, const std::string& sql,
                         nbx::smart_ptr<nbx::ValueRow> parameters = nullptr) {
        auto* const streaming = static_cast<nbx::mrsql::I_DuckDBStreaming*>(
            of.QueryInterface(nbx::mrsql::kDuckDBStreamingInterfaceId));
        return streaming->OpenStream(S(sql), std::move(parameters));
    }
    Cursor Stream(const std::string& sql) const { return Stream(*database, sql); }
    void Limit(uint64_t milliseconds) const {
        static_cast<nbx::mrsql::I_DuckDBDeadlines*>(
            database->QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId))
            ->put_TimeLimit(milliseconds);
    }
    /** All rows, described cell by cell. */
    static std::vector<std::string> RowsOf(nbx::mrsql::I_DuckDBCursor& cursor) {
        std::vector<std::string> rows;
        while (cursor.NextRecord()) {
            std::string row;
            for (uint32_t column = 0; column < cursor.get_ColumnCount(); ++column) {
                row += U(cursor.get_ColumnName(column)) + " " + U(cursor.get_ColumnTypeName(column)) + " " +
                       std::to_string(cursor.get_ColumnType(column)) + ": " +
                       mduckdb::Describe(cursor.get_Value(column).get()) + "\n";
            }
            rows.push_back(row);
        }
        return rows;
    }
    /** Reads to the end; returns how many rows there were before `Thrown` describes what happened. */
    static std::string ReadAll(nbx::mrsql::I_DuckDBCursor& cursor, int64_t& count) {
        return Thrown([&] {
            for (count = 0; cursor.NextRecord(); ++count) {
            }
        });
    }

    Database database;
};

TEST_F(DatabaseStream, HasTheColumnsAndValuesOfAServerCursor) {
    for (const std::string sql :
         {"FROM test_all_types()",
          "SELECT i, i::VARCHAR AS t, [i, NULL] AS l FROM range(10000) r(i) ORDER BY i",
          "SELECT {'a': 1}::VARIANT AS v", "SELECT 1 WHERE false"}) {
        const auto server = database->SqlSelect(S(sql), nbx::mrsql::kServerCursor, nullptr);
        EXPECT_EQ(RowsOf(*Stream(sql)), RowsOf(*server)) << sql;
    }
}

TEST_F(DatabaseStream, HasItsFirstRowLongBeforeTheQueryCouldEnd) {
    const PeakMemory memory;
    [[maybe_unused]] const int64_t before = memory.get_Bytes();
    const auto cursor = Stream(kEndlessRows);
    for (int64_t i = 0; i < 500'000; ++i) {
        ASSERT_TRUE(cursor->NextRecord());
        ASSERT_EQ(cursor->get_Value(0)->get_LLong(), i);
    }
#ifndef MDUCKDB_TEST_IS_SANITIZED
    EXPECT_LT(memory.get_Bytes() - before, 60'000'000);
#endif
    // Closing ends the query: nothing waits for the other rows.
}

TEST_F(DatabaseStream, SeesWhatIsCommittedAndNoTemporaryTables) {
    Execute(*database, "CREATE TABLE t AS SELECT 1 AS i; CREATE TEMP TABLE own AS SELECT 1 AS i");
    const auto begin = database->CreateStatement(S("BEGIN; INSERT INTO t VALUES (2)"));
    begin->ExecuteAll();
    EXPECT_EQ(RowsOf(*Stream("FROM t")).size(), 1u);
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "2");
    EXPECT_NE(Thrown([&] { Stream("FROM own"); }).find("Table with name own does not exist"),
              std::string::npos);
    database->CreateStatement(S("COMMIT"))->ExecuteAll();
    EXPECT_EQ(RowsOf(*Stream("FROM t")).size(), 2u);
}

TEST_F(DatabaseStream, KeepsItsSnapshotWhileOtherStatementsChangeTheTable) {
    Execute(*database, "CREATE TABLE t AS SELECT range AS i FROM range(300000)");
    const auto cursor = Stream("SELECT i FROM t");
    ASSERT_TRUE(cursor->NextRecord());
    EXPECT_EQ(Execute(*database, "DELETE FROM t WHERE i >= 1000"), 299'000);
    int64_t count = 0;
    EXPECT_EQ(ReadAll(*cursor, count), "none");
    EXPECT_EQ(count, 299'999);
}

TEST_F(DatabaseStream, BindsParameters) {
    const auto row = nbx::MakeObject<nbx::ValueRow>();
    for (const int64_t number : {int64_t{4}, int64_t{38}}) {
        row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLLong(false, &number, nullptr)));
    }
    const auto cursor = Stream(*database, "SELECT ?::BIGINT + ?::BIGINT", row);
    ASSERT_TRUE(cursor->NextRecord());
    EXPECT_EQ(cursor->get_Value(0)->get_LLong(), 42);
    EXPECT_FALSE(cursor->NextRecord());
    EXPECT_FALSE(cursor->NextRecord());
}

TEST_F(DatabaseStream, RefusesEverythingButOneQueryBeforeItRuns) {
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    EXPECT_EQ(Thrown([&] { Stream("INSERT INTO t VALUES (1) RETURNING i"); }),
              Refusal(Path(), "Query doesn't return a result"));
    EXPECT_NE(Thrown([&] { Stream("SELECT 1; INSERT INTO t VALUES (1)"); }).find("multiple statements"),
              std::string::npos);
    EXPECT_NE(Thrown([&] { Stream("SELEC 1"); }).find("syntax error"), std::string::npos);
    EXPECT_NE(Thrown([&] { Stream(""); }), "none");
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "0");
    database->Close();
    EXPECT_EQ(Thrown([&] { Stream("SELECT 1"); }), Refusal(Path(), "DuckDBDatabase is not open"));
}

TEST_F(DatabaseStream, ThrowsWhatEndedItAtTheRowAndEverAfter) {
    // DuckDB stops the other threads of a failed query by an interrupt of its own, which a reader of the rows
    // may see before the cause.
    Execute(*database, "SET threads = 1");
    const std::string failing =
        "SELECT CASE WHEN i = 3000000 THEN error('broken here') ELSE i END FROM range(4000000) r(i)";
    const auto cursor = Stream(failing);
    int64_t count = 0;
    const std::string first = ReadAll(*cursor, count);
    EXPECT_NE(first.find("broken here"), std::string::npos) << first;
    EXPECT_GT(count, 0);
    EXPECT_LE(count, 3'000'000);
    EXPECT_EQ(ReadAll(*cursor, count), first);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(QueryText(*database, "SELECT 42"), "42");
}

TEST_F(DatabaseStream, WhoseStartFailsLeavesNothingBehind) {
    for (const char* call :
         {"duckdb_connect", "duckdb_prepare", "duckdb_pending_prepared_stream", "duckdb_execute_pending"}) {
        duckdb_faults::FailCall(call, 1);
        const int64_t before = duckdb_faults::CountLiveHandles();
        EXPECT_NE(Thrown([&] { Stream("SELECT 1"); }), "none") << call;
        EXPECT_EQ(duckdb_faults::CountLiveHandles(), before) << call;
        EXPECT_EQ(RowsOf(*Stream("SELECT 1")).size(), 1u);
    }
}

TEST_F(DatabaseStream, IsEndedByAnInterrupt) {
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
    const auto rows = Stream(kEndlessRows);
    ASSERT_TRUE(rows->NextRecord());
    std::atomic<bool> is_over{false};
    std::thread watcher([&] {
        while (!is_over) {
            std::this_thread::sleep_for(20ms);
            database->Interrupt();
        }
    });
    EXPECT_EQ(Thrown([&] { Stream(kEndless); }), Thrown([] { throw nbx::xInterruptError(0x57501); }));
    is_over = true;
    watcher.join();
    int64_t count = 0;
    EXPECT_EQ(ReadAll(*rows, count), Thrown([] { throw nbx::xInterruptError(0x57501); }));
    EXPECT_LT(count, 2048) << "the rows that were read before";
    EXPECT_EQ(RowsOf(*Stream("SELECT 42")).size(), 1u);
}

TEST_F(DatabaseStream, ObeysTheTimeLimitOfTheDatabaseInEachCall) {
    const std::string cut = Refusal(Path(), "The time limit of 50 ms is over: the statement was cut");
    Limit(50);
    EXPECT_EQ(Thrown([&] { Stream(kEndless); }), cut);
    Limit(0);
    const auto cursor = Stream(kStalling);
    ASSERT_TRUE(cursor->NextRecord());
    Limit(50);
    int64_t count = 0;
    EXPECT_EQ(ReadAll(*cursor, count), cut);
    EXPECT_LE(count, kRowsBeforeStall);
    Limit(0);
    EXPECT_EQ(ReadAll(*cursor, count), cut);
    EXPECT_EQ(RowsOf(*Stream("SELECT 42")).size(), 1u);
}

TEST_F(DatabaseStream, IsEndedByACloseWhichWaitsForNoRow) {
    for (const bool is_dropped : {false, true}) {
        const auto cursor = Stream(kStalling);
        ASSERT_TRUE(cursor->NextRecord());
        std::string thrown;
        std::thread reader([&] {
            int64_t count = 0;
            thrown = ReadAll(*cursor, count);
        });
        std::this_thread::sleep_for(50ms);
        const auto begun = Clock::now();
        is_dropped ? database->Drop() : database->Close();
        EXPECT_LT(Clock::now() - begun, 10s);
        reader.join();
        EXPECT_NE(thrown.find("DuckDBCursor is invalid"), std::string::npos) << thrown;
        EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 0u);
        is_dropped ? void() : database->Open();
    }
}

TEST_F(DatabaseStream, IsEndedByACloseWhileItsQueryBegins) {
    for (int round = 0; round < 20; ++round) {
        std::string thrown;
        std::thread opener([&] { thrown = Thrown([&] { Stream(kEndless); }); });
        std::this_thread::sleep_for(std::chrono::milliseconds(round));
        database->Close();
        opener.join();
        EXPECT_TRUE(thrown.find("DuckDBCursor is invalid") != std::string::npos ||
                    thrown.find("DuckDBDatabase is not open") != std::string::npos)
            << thrown;
        database->Open();
    }
}

TEST_F(DatabaseStream, MayOutliveItsDatabase) {
    Cursor cursor = Stream(kEndlessRows);
    ASSERT_TRUE(cursor->NextRecord());
    const auto value = cursor->get_Value(1);
    database = nullptr;
    EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 0u);
    EXPECT_NE(Thrown([&] { cursor->NextRecord(); }).find("DuckDBCursor is invalid"), std::string::npos);
    EXPECT_EQ(U(value->get_Text()), "row 0");
    cursor = nullptr;
}

TEST_F(DatabaseStream, LetsTheSameDatabaseWorkWhileItsQueryRuns) {
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
    std::atomic<bool> is_running{false};
    std::string thrown;
    std::thread opener([&] {
        is_running = true;
        thrown = Thrown([&] { Stream(kEndless); });
    });
    while (!is_running) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(QueryText(*database, "SELECT 42"), "42");
    database->Interrupt();
    opener.join();
    EXPECT_EQ(thrown, Thrown([] { throw nbx::xInterruptError(0x57501); }));
}

TEST_F(DatabaseStream, OfSeveralThreadsRunAtTheSameTime) {
    std::atomic<int64_t> sum{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const auto cursor = Stream("SELECT i FROM range(50000) r(i)");
            while (cursor->NextRecord()) {
                sum += cursor->get_Value(0)->get_LLong();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(sum, 4 * (int64_t{49'999} * 50'000 / 2));
}

}  // namespace
