#include "base/deadline.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/thread_count.h"

namespace mduckdb {
namespace {

using Clock = Deadline::Clock;
using std::chrono::milliseconds;

void Count(void* target) noexcept {
    ++*static_cast<std::atomic<int>*>(target);
}

/** Waits for the counter to reach the number; false after ten seconds. */
bool Reaches(const std::atomic<int>& counter, int number) {
    for (const auto end = Clock::now() + std::chrono::seconds(10); counter < number;) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

/** Until the system has it no more, which is a moment after the join. */
void StartAndEndThread() {
    pid_t thread = 0;
    std::thread([&] { thread = gettid(); }).join();
    while (std::filesystem::exists("/proc/self/task/" + std::to_string(thread))) {
        std::this_thread::sleep_for(milliseconds(1));
    }
}

TEST(DeadlineTest, CutsFromItsTimeOnUntilItIsDestroyed) {
    std::atomic<int> cuts{0};
    const auto time = Clock::now() + milliseconds(40);
    {
        const Deadline deadline(time, &Count, &cuts);
        EXPECT_FALSE(deadline.get_HasCut() && Clock::now() < time);
        ASSERT_TRUE(Reaches(cuts, 1));
        EXPECT_GE(Clock::now(), time);
        EXPECT_TRUE(deadline.get_HasCut());
        ASSERT_TRUE(Reaches(cuts, 3));
    }
    const int last = cuts;
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_EQ(last, cuts);
}

TEST(DeadlineTest, OfATimeThatIsOverCutsAtOnce) {
    std::atomic<int> cuts{0};
    const Deadline deadline(Clock::now() - std::chrono::hours(1), &Count, &cuts);
    EXPECT_TRUE(Reaches(cuts, 1));
}

TEST(DeadlineTest, ThatIsDestroyedInTimeCutsNothing) {
    std::atomic<int> cuts{0};
    for (int i = 0; i < 1000; ++i) {
        const Deadline deadline(Clock::now() + std::chrono::minutes(10), &Count, &cuts);
    }
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(0, cuts);
}

TEST(DeadlineTest, AnEarlierOneIsNotHeldUpByALaterOne) {
    std::atomic<int> late{0};
    std::atomic<int> early{0};
    const Deadline later(Clock::now() + std::chrono::hours(1), &Count, &late);
    const Deadline sooner(Clock::now() + milliseconds(5), &Count, &early);
    EXPECT_TRUE(Reaches(early, 1));
    EXPECT_EQ(0, late);
}

/** A target that a cut after the deadline's end would find dead. */
struct Target {
    std::atomic<bool> is_alive{true};
    ~Target() { is_alive = false; }
};
std::atomic<int> gLateCuts{0};

void CutTarget(void* target) noexcept {
    gLateCuts += static_cast<Target*>(target)->is_alive ? 0 : 1;
}

TEST(DeadlineTest, NeverCutsAfterItsEnd) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i) {
                Target target;
                const Deadline deadline(Clock::now() + std::chrono::microseconds(i % 7 * 20), &CutTarget,
                                        &target);
                if (i % 10 == t) {
                    std::this_thread::sleep_for(milliseconds(1));
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, gLateCuts);
}

/** Runs the function in a new process, which must exit with the status within a minute. */
class DeadlineProcessTest : public testing::Test {
  protected:
    DeadlineProcessTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
    static void Arm() {
        static std::atomic<int> cuts{0};
        // Still armed when the process exits.
        static_cast<void>(new Deadline(Clock::now(), &Count, &cuts));
        Reaches(cuts, 1);
    }
};

TEST_F(DeadlineProcessTest, StartsOneThreadWithTheFirstDeadlineAndJoinsItAtTheExit) {
    const auto run = [] {
        alarm(60);
        StartAndEndThread();  // With the first thread a sanitizer may start one of its own.
        const std::size_t before = CountThreads();
        std::vector<std::unique_ptr<Deadline>> deadlines;
        std::atomic<int> cuts{0};
        for (int i = 0; i < 3; ++i) {
            deadlines.push_back(
                std::make_unique<Deadline>(Clock::now() + std::chrono::hours(1), &Count, &cuts));
        }
        std::exit(CountThreads() == before + 1 ? 7 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST_F(DeadlineProcessTest, DoesNotHoldUpTheExitOfAProcess) {
    const auto run = [] {
        alarm(60);
        Arm();
        std::exit(7);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

#ifndef MDUCKDB_TEST_IS_THREAD_SANITIZED
TEST_F(DeadlineProcessTest, WorksInAForkedChildWhichExits) {
    const auto run = [] {
        alarm(60);
        Arm();
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            std::atomic<int> cuts{0};
            const Deadline deadline(Clock::now(), &Count, &cuts);
            std::exit(Reaches(cuts, 2) ? 7 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        std::exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}
#endif

TEST_F(DeadlineProcessTest, ItsThreadTakesNoneOfTheHostsSignals) {
    const auto run = [] {
        alarm(60);
        Arm();
        static std::atomic<int> handled{0};
        static const pthread_t main_thread = pthread_self();
        std::signal(SIGUSR1,
                    [](int) { handled += pthread_equal(pthread_self(), main_thread) != 0 ? 1 : 100; });
        for (int i = 0; i < 50; ++i) {
            kill(getpid(), SIGUSR1);
        }
        std::exit(handled > 0 && handled < 100 ? 7 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace mduckdb
