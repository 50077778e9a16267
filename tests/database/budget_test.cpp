#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "database_test_base.h"
#include "nbx/mrsql/duckdb_budget.h"
#include "procedures/handlers.h"
#include "support/fake_host.h"

namespace {

using mduckdb::FetchDuckDB;
using mduckdb::test::FakeHost;
using nbx::mrsql::DuckDBBudgetFigures;
using nbx::mrsql::I_DuckDBBudget;

constexpr uint64_t kMegabyte = 1'000'000;

class BudgetOfEngines : public DatabaseTest {
  protected:
    void TearDown() override {
        get_Budget().put_Budget(0, 0);
        DatabaseTest::TearDown();
    }
    I_DuckDBBudget& get_Budget() const {
        return *static_cast<I_DuckDBBudget*>(host->QueryInterface(nbx::mrsql::kDuckDBBudgetInterfaceId));
    }
    /** What DuckDB says. */
    static uint64_t MemoryOf(nbx::mrsql::I_DuckDBDatabase& database) {
        // It prints the limit rounded to a tenth of a MiB.
        const std::string text = QueryText(
            database,
            "SELECT (replace(current_setting('memory_limit'), ' MiB', '')::DOUBLE * 1048576)::BIGINT");
        return std::stoull(text);
    }
    static std::string ThreadsOf(nbx::mrsql::I_DuckDBDatabase& database) {
        return QueryText(database, "SELECT current_setting('threads')");
    }
    static void ExpectMemory(nbx::mrsql::I_DuckDBDatabase& database, uint64_t megabytes) {
        EXPECT_NEAR(static_cast<double>(MemoryOf(database)), static_cast<double>(megabytes * kMegabyte),
                    200'000.0);
    }
    Database WithOptions(const std::string& path, uint32_t threads, uint32_t memory) const {
        const Database database = host.Database(path);
        nbx::mrsql::DuckDBDatabaseOptions options;
        options.threads = threads;
        options.max_memory_mb = memory;
        database->put_Options(options);
        database->Create();
        return database;
    }
};

TEST_F(BudgetOfEngines, IsNoneAtFirstAndLeavesDuckDBsDefaults) {
    EXPECT_EQ(get_Budget().get_MemoryBudget(), 0u);
    EXPECT_EQ(get_Budget().get_ThreadBudget(), 0u);
    const Database database = host.Created(Path());
    EXPECT_EQ(ThreadsOf(*database), std::to_string(std::thread::hardware_concurrency()));
    const DuckDBBudgetFigures figures = get_Budget().get_Figures();
    EXPECT_EQ(figures.engines, 1u);
    EXPECT_EQ(std::to_string(figures.memory_used),
              QueryText(*database, "SELECT sum(memory_usage_bytes) FROM duckdb_memory()"));
}

TEST_F(BudgetOfEngines, IsDividedAnewWheneverAnEngineOpensOrCloses) {
    get_Budget().put_Budget(600, 6);
    const Database first = host.Created(Path("1.db"));
    ExpectMemory(*first, 600);
    EXPECT_EQ(ThreadsOf(*first), "6");
    {
        const Database second = host.Created(Path("2.db"));
        const Database third = host.Created(":memory:");
        for (const Database& database : {first, second, third}) {
            ExpectMemory(*database, 200);
            EXPECT_EQ(ThreadsOf(*database), "2");
        }
        const DuckDBBudgetFigures figures = get_Budget().get_Figures();
        EXPECT_EQ(figures.engines, 3u);
        EXPECT_EQ(figures.memory_limit, 600 * kMegabyte);
        EXPECT_EQ(figures.threads, 6u) << "after a statement of each";
    }
    ExpectMemory(*first, 600);
    EXPECT_EQ(ThreadsOf(*first), "6");
}

TEST_F(BudgetOfEngines, IsDividedAmongTheOpenEnginesWhenItIsSet) {
    const Database first = host.Created(Path("1.db"));
    const Database second = host.Created(Path("2.db"));
    get_Budget().put_Budget(300, 4);
    EXPECT_EQ(get_Budget().get_MemoryBudget(), 300u);
    EXPECT_EQ(get_Budget().get_ThreadBudget(), 4u);
    ExpectMemory(*first, 150);
    ExpectMemory(*second, 150);
    EXPECT_EQ(ThreadsOf(*second), "2");
    get_Budget().put_Budget(0, 0);
    ExpectMemory(*second, 150);
    EXPECT_EQ(QueryText(*first, "SELECT count(*) FROM range(100000)"), "100000");
}

TEST_F(BudgetOfEngines, CountsWhatOptionsFixAndLeavesIt) {
    get_Budget().put_Budget(500, 5);
    const Database fixed = WithOptions(Path("1.db"), 1, 100);
    const Database open = host.Created(Path("2.db"));
    ExpectMemory(*fixed, 100);
    EXPECT_EQ(ThreadsOf(*fixed), "1");
    ExpectMemory(*open, 400);
    EXPECT_EQ(ThreadsOf(*open), "4");
    const DuckDBBudgetFigures figures = get_Budget().get_Figures();
    EXPECT_EQ(figures.memory_shares, 1u);
    EXPECT_EQ(figures.thread_shares, 1u);
    const Database half = WithOptions(Path("3.db"), 0, 100);
    ExpectMemory(*open, 300);
    EXPECT_EQ(ThreadsOf(*half), "2");
}

TEST_F(BudgetOfEngines, LeavesAnEngineAtLeastSixteenMebibytesAndOneThread) {
    const Database first = host.Created(Path("1.db"));
    const Database second = host.Created(Path("2.db"));
    get_Budget().put_Budget(1, 1);
    for (const Database& database : {first, second}) {
        EXPECT_EQ(MemoryOf(*database), 16u * 1024 * 1024);
        EXPECT_EQ(ThreadsOf(*database), "1");
        EXPECT_EQ(QueryText(*database, "SELECT sum(range) FROM range(1000000)"), "499999500000");
    }
}

TEST_F(BudgetOfEngines, IsCappedAtTheMachinesMemoryAndAThousandAndTwentyFourThreads) {
    get_Budget().put_Budget(~uint64_t{0}, 5000);
    const auto pages = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES));
    EXPECT_EQ(get_Budget().get_MemoryBudget(),
              pages * static_cast<uint64_t>(sysconf(_SC_PAGE_SIZE)) / kMegabyte);
    EXPECT_EQ(get_Budget().get_ThreadBudget(), 1024u);
    get_Budget().put_Budget(0, 0);
}

TEST_F(BudgetOfEngines, TakesNothingAwayThatAnEngineHolds) {
    const Database database = host.Created(":memory:");
    Execute(*database, "CREATE TABLE t AS SELECT range AS i, md5(range::VARCHAR) AS t FROM range(1000000)");
    const uint64_t used = get_Budget().get_Figures().memory_used;
    ASSERT_GT(used, 20 * kMegabyte);
    get_Budget().put_Budget(1, 0);
    EXPECT_GE(get_Budget().get_Figures().memory_limit, used);
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t WHERE i >= 0"), "1000000");
}

TEST_F(BudgetOfEngines, CoversTheEnginesOfProceduresToo) {
    get_Budget().put_Budget(400, 4);
    const std::string path = MakeFile();
    const Database database = host.Created(":memory:");
    FakeHost procedures;
    ASSERT_NE(procedures.Call<FetchDuckDB>({procedures.Text(path), procedures.Text("t")}), nullptr);
    EXPECT_EQ(get_Budget().get_Figures().engines, 2u);
    ExpectMemory(*database, 200);
    procedures.CloseCursor();
    ExpectMemory(*database, 400);
}

TEST_F(BudgetOfEngines, MayBeSetWhileStatementsRunAndFilesOpen) {
    std::atomic<bool> is_over = false;
    std::thread setter([&] {
        for (uint32_t i = 0; !is_over; ++i) {
            get_Budget().put_Budget(100 + i % 300, 1 + i % 4);
            EXPECT_LE(get_Budget().get_Figures().engines, 3u);
        }
    });
    const Database memory = host.Created(":memory:");
    for (int i = 0; i < 20; ++i) {
        const Database file = host.Created(Path());
        EXPECT_EQ(QueryText(*memory, "SELECT sum(range) FROM range(300000)"), "44999850000");
        EXPECT_EQ(QueryText(*file, "SELECT count(*) FROM range(100000)"), "100000");
    }
    is_over = true;
    setter.join();
}

}  // namespace
