#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "engines/idle_calls.h"
#include "support/forked_child.h"

namespace mduckdb {
namespace {

/** Runs the function in a new process, which must exit with status 7 within a minute. */
class IdleProcessTest : public testing::Test {
  protected:
    IdleProcessTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

TEST_F(IdleProcessTest, TheyDoNotHoldUpTheExitOfAProcess) {
    const auto run = [] {
        alarm(60);
        IdleEngines::Keep(Open());
        std::exit(CountIdle() == 1 ? 7 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST_F(IdleProcessTest, ACallThatEndsDuringTheExitClosesItsEngine) {
    const auto run = [] {
        alarm(60);
        static std::optional<MemoryEngine> engine;
        // Runs after the list has closed.
        std::atexit([] {
            IdleEngines::Keep(std::move(*engine));
            if (CountIdle() != 0 || EngineFiles::Nameless().get_EngineCount() != 0) {
                _exit(1);
            }
        });
        engine.emplace(Open());
        IdleEngines::Keep(Open());
        std::exit(7);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

// The allocator of a sanitizer may be locked by an engine's thread at the fork, and stays so in the child.
#ifndef MDUCKDB_TEST_IS_SANITIZED
TEST_F(IdleProcessTest, AForkedChildHasNoneOfItsParentsAndExits) {
    const auto run = [] {
        alarm(60);
        IdleEngines::Keep(Open());
        const int status = RunInForkedChild([] {
            const bool has_none = CountIdle() == 0 && !TakeIdle(kTerms);
            IdleEngines::Keep(Open());
            return has_none && CountIdle() == 1 && TakeIdle(kTerms) ? 7 : 1;
        });
        const bool is_kept = CountIdle() == 1 && TakeIdle(kTerms);
        std::exit(is_kept ? status : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST_F(IdleProcessTest, AForkedChildMayExitAtOnce) {
    const auto run = [] {
        alarm(60);
        IdleEngines::Keep(Open());
        std::exit(RunInForkedChild([] { return 7; }));
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}
#endif

}  // namespace
}  // namespace mduckdb
