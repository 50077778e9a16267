#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

#include "backup/files.h"
#include "backup/manifest.h"
#include "plain_engine.h"
#include "support/environment.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kAccounts = 1000;
constexpr int kMovers = 8;
constexpr int kBuilders = 2;

/** Threads that move money between accounts, with a line in a journal for each commit, and threads that
   create, fill and drop tables. */
class Traffic {
  public:
    Traffic(const PlainEngine& engine, int rows) : engine_(engine) {
        for (int i = 0; i < kMovers; ++i) {
            threads_.emplace_back([this, i] { MoveMoney(i); });
        }
        for (int i = 0; i < kBuilders; ++i) {
            threads_.emplace_back([this, i, rows] { Build(i, rows); });
        }
    }
    ~Traffic() {
        is_done_.store(true);
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    int64_t get_Commits() const { return commits_.load(); }

  private:
    void MoveMoney(int thread) {
        BackupStop stop;
        SqlWorker worker(engine_.get(), stop);
        for (int i = 0; !is_done_.load(); ++i) {
            const std::string from = std::to_string((thread * 125 + i * 7) % kAccounts);
            const std::string to = std::to_string((thread * 125 + i * 13 + 1) % kAccounts);
            const bool is_moved =
                worker.TryRun("BEGIN") &&
                worker.TryRun("UPDATE account SET balance = balance - 1 WHERE id = " + from) &&
                worker.TryRun("UPDATE account SET balance = balance + 1 WHERE id = " + to) &&
                worker.TryRun("INSERT INTO journal VALUES (" + from + ", " + to + ")") &&
                worker.TryRun("COMMIT");
            // Two threads may update the same account; DuckDB refuses the second.
            is_moved ? void(++commits_) : void(worker.TryRun("ROLLBACK"));
        }
    }
    void Build(int thread, int rows) {
        BackupStop stop;
        SqlWorker worker(engine_.get(), stop);
        const std::string table = "built" + std::to_string(thread);
        while (!is_done_.load()) {
            worker.TryRun("CREATE OR REPLACE TABLE " + table +
                          " AS SELECT hash(i) AS h, 'text ' || i AS s FROM range(" + std::to_string(rows) +
                          ") r(i)");
            worker.TryRun("UPDATE " + table + " SET s = 'other' WHERE h % 10 = 0");
            worker.TryRun("VACUUM");
            worker.TryRun("DROP TABLE " + table);
            worker.TryRun("CHECKPOINT");
        }
    }

    const PlainEngine& engine_;
    std::atomic<bool> is_done_{false};
    std::atomic<int64_t> commits_{0};
    std::vector<std::thread> threads_;
};

/** The commits of the traffic while pieces of work run, over the seconds that they take. */
class TrafficRate {
  public:
    template <typename Work>
    void Add(const Traffic& traffic, const Work& work) {
        const auto start = Clock::now();
        const int64_t before = traffic.get_Commits();
        work();
        commits_ += traffic.get_Commits() - before;
        seconds_ += std::chrono::duration<double>(Clock::now() - start).count();
    }
    double get_Seconds() const { return seconds_; }
    double PerSecond() const { return static_cast<double>(commits_) / seconds_; }

  private:
    int64_t commits_ = 0;
    double seconds_ = 0;
};

/** No money was created or lost, and every account matches the journal: the snapshot holds whole
    transactions, and with each one everything that had been committed before it. */
void ExpectCommittedState(const std::string& file) {
    const PlainEngine snapshot(file, "READ_ONLY");
    EXPECT_EQ(snapshot.Text("SELECT sum(balance)::VARCHAR FROM account"), std::to_string(kAccounts * 100));
    EXPECT_EQ(snapshot.Text("SELECT count(*)::VARCHAR FROM account a WHERE balance <> 100 + "
                            "(SELECT count(*) FROM journal j WHERE j.\"to\" = a.id) - "
                            "(SELECT count(*) FROM journal j WHERE j.\"from\" = a.id)"),
              "0");
}

// MDUCKDB_TEST_SNAPSHOTS=100 MDUCKDB_TEST_SNAPSHOT_ROWS=2000000 runs the whole test.
TEST(SnapshotStress, EverySnapshotIsACommittedStateWhileOthersWrite) {
#ifdef MDUCKDB_TEST_IS_SANITIZED
    GTEST_SKIP() << "ten busy threads leave a sanitized snapshot minutes behind the traffic";
#endif
    const int snapshots = NumberFromEnvironment("MDUCKDB_TEST_SNAPSHOTS", 3);
    const int rows = NumberFromEnvironment("MDUCKDB_TEST_SNAPSHOT_ROWS", 50'000);
    const TempFolder folder;
    const PlainEngine source(folder / "source.db");
    ASSERT_EQ(
        source.Run("CREATE TABLE account AS SELECT i::INTEGER AS id, 100 AS balance FROM range(1000) r(i);"
                   "CREATE TABLE journal (\"from\" INTEGER, \"to\" INTEGER)"),
        "");
    Traffic traffic(source, rows);
    TrafficRate quiet;
    TrafficRate busy;
    int compared = 0;
    for (int i = 0; i < snapshots; ++i) {
        const std::string target = folder / ("snap" + std::to_string(i) + ".db");
        // Before each snapshot, since the traffic slows down as its database grows.
        quiet.Add(traffic, [] { std::this_thread::sleep_for(std::chrono::seconds(1)); });
        busy.Add(traffic, [&] { ASSERT_EQ(SnapshotError(source, target), "none") << i; });
        ASSERT_FALSE(HasFatalFailure());
        ExpectCommittedState(target);
        compared += ReadWhole(ManifestOf(target)).find("\"compared\": \"rows\"") != std::string::npos ? 1 : 0;
        std::filesystem::remove(target);
        // This traffic leaves DuckDB no moment for a checkpoint of its own, so the file would grow with each
        // snapshot.
        ASSERT_EQ(source.Run("FORCE CHECKPOINT"), "") << i;
    }
    std::cout << snapshots << " snapshots, " << compared << " compared in every row, "
              << busy.get_Seconds() / snapshots << " s each; commits a second: " << quiet.PerSecond()
              << " without, " << busy.PerSecond() << " during snapshots\n";
    EXPECT_GT(compared, 0);
    // Too few say little about speed.
    if (snapshots >= 100) {
        EXPECT_GT(busy.PerSecond(), quiet.PerSecond() / 2);
    }
}

}  // namespace
}  // namespace mduckdb
