#include "nbx/engine_lock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace nbx {
namespace {

TEST(ThreadFlags, AreFalseInAThreadThatNeverSetThem) {
    gIsGlobalLockTaken.put(true);
    gIsThisDiagnoseMTThread.put(true);
    bool seen[2] = {true, true};
    std::thread([&seen] {
        seen[0] = gIsGlobalLockTaken.get();
        seen[1] = gIsThisDiagnoseMTThread.get();
        gIsGlobalLockTaken.put(false);
    }).join();
    EXPECT_FALSE(seen[0]);
    EXPECT_FALSE(seen[1]);
    EXPECT_TRUE(gIsGlobalLockTaken.get());
    gIsGlobalLockTaken.put(false);
    EXPECT_TRUE(gIsThisDiagnoseMTThread.get());
    gIsThisDiagnoseMTThread.put(false);
    EXPECT_FALSE(gIsThisDiagnoseMTThread.get());
}

TEST(GlobalEngineLock, IsOneLockThatKeepsThreadsApart) {
    EXPECT_EQ(&GetGlobalEngineLock(), &GetGlobalEngineLock());
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&counter] {
            for (int round = 0; round < kRounds; ++round) {
                const MutexLock lock(GetGlobalEngineLock());
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
}

TEST(GlobalEngineLock, IsNotFreeWhileItIsHeld) {
    GetGlobalEngineLock().lock();
    bool is_free = true;
    std::thread([&is_free]() NBX_NO_THREAD_SAFETY_ANALYSIS {
        is_free = GetGlobalEngineLock().try_lock();
        if (is_free) {
            GetGlobalEngineLock().unlock();
        }
    }).join();
    GetGlobalEngineLock().unlock();
    EXPECT_FALSE(is_free);
}

}  // namespace
}  // namespace nbx
