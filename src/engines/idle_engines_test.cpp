#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "base/holders.h"
#include "engines/idle_calls.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

using std::chrono::milliseconds;

/** Makes the engine fail with an internal error: a TIME outside the day cannot become text. */
void EndEngine(const MemoryEngine& engine) {
    duckdb_connection connection = nullptr;
    ASSERT_EQ(DuckDBSuccess, duckdb_connect(engine.get_Engine()->handle, &connection));
    EXPECT_EQ(DuckDBSuccess, duckdb_query(connection, "CREATE TEMP TABLE bad (t TIME)", nullptr));
    {
        PreparedHolder prepared;
        EXPECT_EQ(DuckDBSuccess,
                  duckdb_prepare(connection, "INSERT INTO bad VALUES (?)", prepared.Receive()));
        EXPECT_EQ(DuckDBSuccess, duckdb_bind_time(prepared.get(), 1, {INT64_MAX}));
        EXPECT_EQ(DuckDBSuccess, duckdb_execute_prepared(prepared.get(), nullptr));
    }
    EXPECT_EQ(DuckDBError, duckdb_query(connection, "SELECT t::VARCHAR FROM bad", nullptr));
    duckdb_disconnect(&connection);
}

/** As many calls as there may be idle engines, each with an engine of its own. */
struct Calls {
    explicit Calls(std::size_t count) : uses(count) {
        for (EngineUse& use : uses) {
            EXPECT_FALSE(IdleEngines::Take(kTerms, use));
            engines.push_back(Open());
        }
    }
    // The uses end after the engines.
    std::vector<EngineUse> uses;
    std::vector<MemoryEngine> engines;
};

/** The shortest time that a call looked for an engine, of several that found none. */
milliseconds GetShortestWait() {
    auto shortest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 20; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(TakeIdle(kTerms));
        shortest = std::min(shortest, std::chrono::steady_clock::now() - begin);
    }
    return std::chrono::duration_cast<milliseconds>(shortest);
}

bool HasThread() {
    const auto name_of = [](const std::filesystem::path& task) {
        std::string name;
        std::ifstream(task / "comm") >> name;
        return name;
    };
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (name_of(task) == "mduckdb-idle") {
            return true;
        }
    }
    return false;
}

/** Waits; false after ten seconds. */
template <class Condition>
bool Becomes(Condition condition) {
    for (int i = 0; i < 1000 && !condition(); ++i) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    return condition();
}

class IdleEnginesTest : public testing::Test {
  protected:
    ~IdleEnginesTest() override {
        IdleEngines::put_IdleTime(milliseconds(5000));
        IdleEngines::put_IsOn(true);
        EXPECT_EQ(before_, EngineFiles::Nameless().get_EngineCount());
    }
    /** Whether the engine is kept after the SQL has run on it. */
    static bool IsKeptAfter(const std::string& sql) {
        MemoryEngine engine = Open();
        EXPECT_EQ("", RunOn(engine, sql)) << sql;
        IdleEngines::Keep(std::move(engine));
        return TakeIdle(kTerms).has_value();
    }

    const std::size_t before_ = EngineFiles::Nameless().get_EngineCount();
};

TEST_F(IdleEnginesTest, HandOnTheEngineThatWasUsedLast) {
    EXPECT_FALSE(TakeIdle(kTerms));
    MemoryEngine first = Open();
    const duckdb_database handle = first.get_Engine()->handle;
    IdleEngines::Keep(std::move(first));
    std::optional<MemoryEngine> taken = TakeIdle(kTerms);
    ASSERT_TRUE(taken);
    EXPECT_EQ(handle, taken->get_Engine()->handle);
    EXPECT_EQ("", RunOn(*taken, "SELECT count(*) FROM range(100000)"));
    EXPECT_FALSE(TakeIdle(kTerms)) << "it serves one call at a time";
}

TEST_F(IdleEnginesTest, AreForCallsOnTheSameTermsAlone) {
    IdleEngines::Keep(Open());
    const EngineTerms others = std::make_shared<int>();
    EXPECT_FALSE(TakeIdle(others));
    EXPECT_FALSE(TakeIdle(nullptr));
    EXPECT_TRUE(TakeIdle(kTerms));
}

TEST_F(IdleEnginesTest, AreAtMostOneACore) {
    const std::size_t most = IdleEngines::get_Most();
    EXPECT_EQ(std::thread::hardware_concurrency(), most);
    std::vector<MemoryEngine> engines;
    std::vector<EngineTerms> terms;
    for (std::size_t i = 0; i <= most; ++i) {
        terms.push_back(std::make_shared<int>());
        engines.push_back(Open(terms.back()));
    }
    for (MemoryEngine& engine : engines) {
        IdleEngines::Keep(std::move(engine));
    }
    EXPECT_EQ(most, CountIdle());
    EXPECT_EQ(before_ + most, EngineFiles::Nameless().get_EngineCount());
    EXPECT_FALSE(TakeIdle(terms.front())) << "the one that waited longest makes room";
    EXPECT_TRUE(TakeIdle(terms.back()));
}

TEST_F(IdleEnginesTest, CloseAfterSomeTimeAndThenTheirThreadEnds) {
    IdleEngines::put_IdleTime(milliseconds(50));
    for (int round = 0; round < 3; ++round) {
        IdleEngines::Keep(Open());
        EXPECT_TRUE(HasThread());
        EXPECT_TRUE(Becomes([this] { return EngineFiles::Nameless().get_EngineCount() == before_; }));
        EXPECT_EQ(0u, CountIdle());
        EXPECT_TRUE(Becomes([] { return !HasThread(); }));
    }
}

TEST_F(IdleEnginesTest, CloseTogetherAndSoDoThoseInUseAfterTheirCall) {
    MemoryEngine used = Open();
    IdleEngines::Keep(Open());
    IdleEngines::CloseAll();
    EXPECT_EQ(0u, CountIdle());
    EXPECT_EQ(before_ + 1, EngineFiles::Nameless().get_EngineCount());
    IdleEngines::Keep(std::move(used));
    EXPECT_EQ(before_, EngineFiles::Nameless().get_EngineCount());
    EXPECT_TRUE(Becomes([] { return !HasThread(); }));
    IdleEngines::Keep(Open());
    EXPECT_EQ(1u, CountIdle());
}

TEST_F(IdleEnginesTest, AreNoneWhileSwitchedOff) {
    IdleEngines::Keep(Open());
    IdleEngines::put_IsOn(false);
    IdleEngines::Keep(Open());
    EXPECT_EQ(before_, EngineFiles::Nameless().get_EngineCount());
}

TEST_F(IdleEnginesTest, AreNotThoseThatACallHasChanged) {
    EXPECT_TRUE(IsKeptAfter("SELECT setseed(0.5), random()"));
    EXPECT_TRUE(IsKeptAfter("SELECT count(*) FROM (SELECT random() AS r FROM range(100000) ORDER BY r)"));
    EXPECT_FALSE(IsKeptAfter("ATTACH ':memory:' AS other"));
    EXPECT_FALSE(IsKeptAfter("CREATE TABLE t AS SELECT i, hash(i) FROM range(10000) r(i)"));
}

TEST_F(IdleEnginesTest, AreNotThoseThatAnInternalErrorHasEnded) {
    MemoryEngine engine = Open();
    EXPECT_NE("", RunOn(engine, "SELECT make_timetz(1)")) << "an ordinary error";
    EXPECT_TRUE(engine.IsAsOpened());
    EndEngine(engine);
    EXPECT_FALSE(engine.IsAsOpened());
    IdleEngines::Keep(std::move(engine));
    EXPECT_EQ(0u, CountIdle());
}

TEST_F(IdleEnginesTest, AreNotThoseThatHaveSpilled) {
    const TempFolder folder;
    MemoryEngine engine = Open(kTerms, folder / "spilled");
    EXPECT_EQ("", RunOn(engine,
                        "SELECT count(*) FROM (SELECT hash(i) AS h FROM range(3000000) r(i) ORDER BY h "
                        "LIMIT 2900000)"));
    EXPECT_TRUE(std::filesystem::exists(folder / "spilled"));
    IdleEngines::Keep(std::move(engine));
    EXPECT_EQ(0u, CountIdle());
    EXPECT_FALSE(std::filesystem::exists(folder / "spilled"));
}

TEST_F(IdleEnginesTest, AreWaitedForWhileEveryCoreHasACall) {
    Calls calls(IdleEngines::get_Most());
    EXPECT_GE(GetShortestWait(), milliseconds(20));
    calls.uses.pop_back();
    EXPECT_LT(GetShortestWait(), milliseconds(20)) << "a core is free";
}

TEST_F(IdleEnginesTest, AreNotWaitedForWhileHostsReadTheirRows) {
    Calls calls(IdleEngines::get_Most());
    for (EngineUse& use : calls.uses) {
        use.Finish();
    }
    std::this_thread::sleep_for(milliseconds(10));
    EXPECT_LT(GetShortestWait(), milliseconds(5));
}

TEST_F(IdleEnginesTest, AreGivenToThoseWhoWaitInTurn) {
    Calls calls(IdleEngines::get_Most());
    const duckdb_database handle = calls.engines.back().get_Engine()->handle;
    std::atomic<int> served{0};
    std::vector<std::thread> waiting;
    for (int t = 0; t < 3; ++t) {
        waiting.emplace_back([&] {
            // A slow machine may let the patience of a call end.
            EngineUse use;
            std::optional<MemoryEngine> engine = IdleEngines::Take(kTerms, use);
            if (engine) {
                EXPECT_EQ(handle, engine->get_Engine()->handle);
                ++served;
                IdleEngines::Keep(std::move(*engine));
            }
        });
    }
    std::this_thread::sleep_for(milliseconds(5));
    IdleEngines::Keep(std::move(calls.engines.back()));
    for (std::thread& thread : waiting) {
        thread.join();
    }
    EXPECT_GE(served, 1);
    EXPECT_EQ(1u, CountIdle());
}

/** Whether a call that waits for an engine gets it, and not the call that has returned it and asks again. */
bool IsWaitingCallServed() {
    Calls calls(IdleEngines::get_Most());
    std::optional<MemoryEngine> first;
    std::thread waiting([&] {
        EngineUse use;
        first = IdleEngines::Take(kTerms, use);
    });
    std::this_thread::sleep_for(milliseconds(10));
    IdleEngines::Keep(std::move(calls.engines.back()));
    calls.uses.pop_back();
    const std::optional<MemoryEngine> again = TakeIdle(kTerms);
    waiting.join();
    EXPECT_FALSE(first && again);
    return first.has_value();
}

TEST_F(IdleEnginesTest, AreGivenToThoseWhoHaveWaitedBeforeTheirUserCallsAgain) {
    constexpr int kTries = 10;
    // A slow machine may start a thread late, or let its patience end before its turn; a busy one often.
    constexpr int kMostRounds = 10;
    int served = 0;
    for (int round = 0; round < kMostRounds && served <= kTries / 2; ++round) {
        served = 0;
        for (int i = 0; i < kTries; ++i) {
            served += IsWaitingCallServed() ? 1 : 0;
        }
    }
    EXPECT_GT(served, kTries / 2);
}

TEST_F(IdleEnginesTest, ServeManyThreadsWhileOthersCloseThem) {
    IdleEngines::put_IdleTime(milliseconds(1));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 10; ++i) {
                EngineUse use;
                std::optional<MemoryEngine> engine = IdleEngines::Take(kTerms, use);
                if (!engine) {
                    engine.emplace(Open());
                }
                EXPECT_EQ("", RunOn(*engine, "SELECT 1"));
                IdleEngines::Keep(std::move(*engine));
                if (i % 4 == t) {
                    IdleEngines::CloseAll();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    IdleEngines::CloseAll();
    EXPECT_EQ(0u, CountIdle());
}

}  // namespace
}  // namespace mduckdb
