#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "database_test_base.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_progress.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nbx::mrsql::DuckDBProgress;

constexpr uint64_t kRows = 2'000'000;
// Takes seconds, and its source is a table, whose rows DuckDB counts.
const std::string kLongScan = "SELECT sum(length(sha256(repeat(i::VARCHAR, 20)))) FROM t";

class DatabaseProgress : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
        database = host.Created(":memory:");
        Execute(*database, "CREATE TABLE t AS SELECT range AS i FROM range(" + std::to_string(kRows) + ")");
    }
    void TearDown() override {
        database = nullptr;
        DatabaseTest::TearDown();
    }
    nbx::mrsql::I_DuckDBProgress& Progress() const {
        return *static_cast<nbx::mrsql::I_DuckDBProgress*>(
            database->QueryInterface(nbx::mrsql::kDuckDBProgressInterfaceId));
    }
    /** Runs the statement and interrupts it once `look` returns true, which another thread asks again and
       again, beside a statement that holds the engine lock. Returns what was seen meanwhile. */
    template <class Look>
    std::vector<DuckDBProgress> Watch(const std::string& sql, Look look) const {
        std::vector<DuckDBProgress> seen;
        std::thread watcher([&] {
            for (const auto end = Clock::now() + 60s; Clock::now() < end;) {
                const DuckDBProgress progress = Progress().get_Progress();
                if (progress.is_running) {
                    seen.push_back(progress);
                    if (look(progress)) {
                        break;
                    }
                }
                std::this_thread::sleep_for(1ms);
            }
            database->Interrupt();
        });
        Thrown([&] { Execute(*database, sql); });
        watcher.join();
        return seen;
    }
    std::string Setting(const std::string& name) const {
        return QueryText(*database, "SELECT current_setting('" + name + "')");
    }

    Database database;
};

TEST_F(DatabaseProgress, OfARunningStatementRisesAndCountsItsRows) {
    Progress().put_IsTracked(true);
    const auto seen = Watch(kLongScan, [](const DuckDBProgress& at) { return at.share > 0.2; });
    ASSERT_FALSE(seen.empty());
    EXPECT_GT(seen.back().share, 0.2);
    EXPECT_LT(seen.back().share, 1.0);
    EXPECT_GT(seen.back().rows, 0u);
    EXPECT_LE(seen.back().rows, seen.back().total_rows);
    // DuckDB adds the few rows between the parts of its plan.
    EXPECT_NEAR(static_cast<double>(seen.back().total_rows), static_cast<double>(kRows), 10.0);
    double last = -1;
    for (const DuckDBProgress& each : seen) {
        EXPECT_GE(each.share, last);
        last = each.share;
    }
}

TEST_F(DatabaseProgress, IsUnknownAndNotNothingUntilItIsTracked) {
    const auto begun = Clock::now();
    const auto seen = Watch(kLongScan, [&](const DuckDBProgress&) { return Clock::now() > begun + 300ms; });
    ASSERT_FALSE(seen.empty());
    for (const DuckDBProgress& each : seen) {
        EXPECT_EQ(each.share, -1);
        EXPECT_EQ(each.total_rows, 0u);
    }
    EXPECT_FALSE(Progress().get_IsTracked());
}

TEST_F(DatabaseProgress, OfASourceThatCannotTellIsUnknown) {
    Progress().put_IsTracked(true);
    for (int i = 0; i < 10; ++i) {
        const auto begun = Clock::now();
        const auto seen = Watch(
            "WITH RECURSIVE r(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM r WHERE i < 100000000) "
            "SELECT count(*) FROM r",
            [&](const DuckDBProgress&) { return Clock::now() > begun + 50ms; });
        ASSERT_FALSE(seen.empty());
        EXPECT_EQ(seen.back().share, -1);
    }
}

TEST_F(DatabaseProgress, OfADatabaseThatRunsNothingIsUnknown) {
    Progress().put_IsTracked(true);
    QueryText(*database, "SELECT count(*) FROM t");
    for (const bool is_open : {true, false}) {
        if (!is_open) {
            database->Close();
        }
        const DuckDBProgress progress = Progress().get_Progress();
        EXPECT_FALSE(progress.is_running);
        EXPECT_EQ(progress.share, -1);
    }
}

TEST_F(DatabaseProgress, IsTrackedAgainAfterACloseAndUntilItIsTurnedOff) {
    Progress().put_IsTracked(true);
    EXPECT_EQ(Setting("enable_progress_bar"), "true");
    EXPECT_EQ(Setting("enable_progress_bar_print"), "false");
    database->Close();
    database->Open();
    EXPECT_TRUE(Progress().get_IsTracked());
    EXPECT_EQ(Setting("enable_progress_bar"), "true");
    Progress().put_IsTracked(false);
    EXPECT_EQ(Setting("enable_progress_bar"), "false");
}

TEST_F(DatabaseProgress, OfATransactionThatFailedIsTrackedOnceItHasEnded) {
    database->CreateStatement(S("BEGIN"))->ExecuteAll();
    const std::string refusal = "INSERT INTO t VALUES ('no number')";
    EXPECT_NE(Thrown([&] { database->CreateStatement(S(refusal))->ExecuteAll(); }), "none");
    Progress().put_IsTracked(true);
    EXPECT_NE(Thrown([&] { database->CreateStatement(S("SELECT 1"))->ExecuteAll(); }), "none");
    database->CreateStatement(S("ROLLBACK"))->ExecuteAll();
    EXPECT_EQ(Setting("enable_progress_bar"), "true");
}

TEST_F(DatabaseProgress, IsTrackedInATransactionThatMayNotChangeSettings) {
    Execute(*database, "CREATE TABLE few (i INTEGER); SET lock_configuration = true; BEGIN");
    for (const bool is_tracked : {true, false}) {
        Progress().put_IsTracked(is_tracked);
        EXPECT_EQ(Thrown([&] { Execute(*database, "INSERT INTO few VALUES (1)"); }), "none");
        EXPECT_EQ(Thrown([&] { EXPECT_EQ(Setting("enable_progress_bar"), is_tracked ? "true" : "false"); }),
                  "none");
    }
    EXPECT_EQ(Thrown([&] { Execute(*database, "COMMIT"); }), "none");
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM few"), "2");
}

TEST_F(DatabaseProgress, MayBeAskedWhileTheDatabaseClosesAndOpens) {
    Progress().put_IsTracked(true);
    std::atomic<bool> is_done{false};
    std::thread watcher([&] {
        while (!is_done) {
            Progress().get_Progress();
        }
    });
    for (int i = 0; i < 20; ++i) {
        database->Close();
        database->Open();
        EXPECT_EQ(QueryText(*database, "SELECT 7"), "7");
    }
    is_done = true;
    watcher.join();
}

}  // namespace
