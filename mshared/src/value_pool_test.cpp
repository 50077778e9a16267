#include "nbx/value_pool.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <latch>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "mshared/test_support.h"

namespace nbx {
namespace {

struct Block {
    unsigned char* memory;
    std::size_t size;
    unsigned char fill;
};

Block MakeBlock(std::size_t size, unsigned char fill) {
    auto* const memory = static_cast<unsigned char*>(AllocatePooled(size));
    std::memset(memory, fill, size);
    return {memory, size, fill};
}

/** Returns whether something else wrote into the block, and frees it. */
bool CheckAndFree(const Block& block) {
    bool is_intact = true;
    for (std::size_t i = 0; i < block.size; ++i) {
        is_intact = is_intact && block.memory[i] == block.fill;
    }
    FreePooled(block.memory, block.size);
    return is_intact;
}

TEST(ValuePool, ReturnsAlignedMemoryThatNothingElseUses) {
    std::mt19937 random(3);
    std::vector<Block> blocks;
    std::set<unsigned char*> addresses;
    for (int i = 0; i < 20'000; ++i) {
        blocks.push_back(MakeBlock(1 + random() % 100, static_cast<unsigned char>(random())));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back().memory) % 8, 0U);
        EXPECT_TRUE(addresses.insert(blocks.back().memory).second);
    }
    for (const Block& block : blocks) {
        ASSERT_TRUE(CheckAndFree(block));
    }
}

TEST(ValuePool, SurvivesReleasesInAnyOrder) {
    std::mt19937 random(5);
    std::vector<Block> blocks;
    for (int i = 0; i < 200'000; ++i) {
        if (blocks.empty() || (random() % 100 < 51 && blocks.size() < 30'000)) {
            blocks.push_back(MakeBlock(8 + random() % 60, static_cast<unsigned char>(random())));
        } else {
            std::swap(blocks[random() % blocks.size()], blocks.back());
            ASSERT_TRUE(CheckAndFree(blocks.back()));
            blocks.pop_back();
        }
    }
    for (const Block& block : blocks) {
        ASSERT_TRUE(CheckAndFree(block));
    }
}

TEST(ValuePool, ReturnsTheMemoryOfAReleasedRowSet) {
    constexpr std::size_t kMegabyte = 1024 * 1024;
    const std::size_t before = GetPoolMappedBytes();
    std::vector<ValuePtr> values;
    for (int32_t i = 0; i < 1'000'000; ++i) {
        values.push_back(TakeValue(CreateValueLong(false, &i, nullptr)));
    }
    const std::size_t full = GetPoolMappedBytes();
    if (full == 0) {
        GTEST_SKIP() << "The pool is switched off under this sanitizer";
    }
    EXPECT_GE(full, before + 22 * kMegabyte);
    EXPECT_EQ(values[777'777]->get_LLong(), 777'777);
    values.clear();
    EXPECT_LE(GetPoolMappedBytes(), before + 3 * kMegabyte);
}

TEST(ValuePool, UsesTheRoomBetweenValuesThatAreKept) {
    std::vector<ValuePtr> kept;
    for (int round = 0; round < 100; ++round) {
        std::vector<ValuePtr> values;
        for (int32_t i = 0; i < 5000; ++i) {
            values.push_back(TakeValue(CreateValueLong(false, &i, nullptr)));
        }
        kept.push_back(values[2500]);
    }
    // 100 rounds hold 100 values and one round's worth at a time, not 100 rounds' worth.
    const std::size_t before = GetPoolMappedBytes();
    for (int round = 0; round < 100; ++round) {
        std::vector<ValuePtr> values;
        for (int32_t i = 0; i < 5000; ++i) {
            values.push_back(TakeValue(CreateValueLong(false, &i, nullptr)));
        }
        kept.push_back(values[2500]);
    }
    EXPECT_LE(GetPoolMappedBytes(), before + 1024 * 1024);
}

TEST(ValuePool, AcceptsValuesReleasedOnAnotherThread) {
    for (int round = 0; round < 5; ++round) {
        std::vector<ValuePtr> values;
        std::thread([&values] {
            for (int32_t i = 0; i < 20'000; ++i) {
                values.push_back(TakeValue(CreateValueLong(false, &i, nullptr)));
            }
        }).join();
        int64_t sum = 0;
        for (const ValuePtr& value : values) {
            sum += value->get_LLong();
        }
        EXPECT_EQ(sum, 199'990'000);
        std::thread([&values] { values.clear(); }).join();
    }
}

TEST(ValuePool, ServesThreadsThatReleaseEachOthersValues) {
    constexpr int kThreads = 4;
    std::vector<std::atomic<I_Value*>> slots(64);
    std::vector<std::thread> threads;
    std::atomic<int> made{0};
    std::atomic<int> released{0};
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(static_cast<unsigned>(t));
            for (int32_t i = 0; i < 20'000; ++i) {
                I_Value* const mine = CreateValueLong(false, &i, nullptr);
                ++made;
                if (I_Value* const former = slots[random() % slots.size()].exchange(mine)) {
                    released += former->Release() == 0 ? 1 : 0;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::atomic<I_Value*>& slot : slots) {
        if (I_Value* const last = slot.exchange(nullptr)) {
            released += last->Release() == 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(made.load(), released.load());
}

TEST(ValuePool, KeepsLittleMemoryForThreadsThatReleasedValuesInAnyOrder) {
    constexpr std::size_t kThreads = 16;
    constexpr std::size_t kMegabyte = 1024 * 1024;
    const std::size_t before = GetPoolMappedBytes();
    std::vector<ValuePtr> values;
    for (int64_t i = 0; i < 2'500'000; ++i) {
        values.push_back(TakeValue(CreateValueLLong(false, &i, nullptr)));
    }
    const std::size_t full = GetPoolMappedBytes();
    if (full == 0) {
        GTEST_SKIP() << "The pool is switched off under this sanitizer";
    }
    EXPECT_GE(full, 56 * kMegabyte);
    std::shuffle(values.begin(), values.end(), std::mt19937(11));
    std::latch all_released(kThreads);
    std::latch may_end(1);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (std::size_t i = t; i < values.size(); i += kThreads) {
                values[i].reset();
            }
            all_released.count_down();
            may_end.wait();
        });
    }
    all_released.wait();
    EXPECT_LE(GetPoolMappedBytes(), before + 32 * kMegabyte);
    may_end.count_down();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/** Creates and releases enough values that the thread needs memory from the shared part of the pool. */
void MakeManyValues() {
    std::vector<ValuePtr> values;
    for (int32_t i = 0; i < 5000; ++i) {
        values.push_back(TakeValue(CreateValueLong(false, &i, nullptr)));
    }
}

/** Waits for the child; kills it and returns false when it hangs. */
bool EndsWell(pid_t child) {
    int status = 0;
    for (int i = 0; i < 3000; ++i) {
        if (::waitpid(child, &status, WNOHANG) == child) {
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    return false;
}

TEST(ValuePool, ServesTheChildOfAForkWhileOtherThreadsCreateValues) {
    const int32_t content = 7;
    const ValuePtr kept = TakeValue(CreateValueLong(false, &content, nullptr));
    if (GetPoolMappedBytes() == 0) {
        GTEST_SKIP()
            << "The pool is switched off under this sanitizer, whose own memory does not survive a fork";
    }
    std::atomic<bool> is_done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&is_done] {
            while (!is_done.load()) {
                MakeManyValues();
            }
        });
    }
    for (int i = 0; i < 30; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            MakeManyValues();
            ::_exit(0);
        }
        ASSERT_GT(child, 0);
        if (!EndsWell(child)) {
            ADD_FAILURE() << "child " << i << " hangs or fails";
            break;
        }
    }
    is_done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/** Releases a value after the thread's own store has been released. */
struct LateRelease {
    ValuePtr value;
    ~LateRelease() {
        const int32_t content = 8;
        const ValuePtr another = TakeValue(CreateValueLong(false, &content, nullptr));
        EXPECT_EQ(another->get_LLong(), 8);
    }
};

TEST(ValuePool, ServesThreadLocalObjectsThatAreDestroyedLast) {
    std::thread([] {
        // Created before the thread's first value, so it is destroyed after the pool's thread-local data.
        static thread_local LateRelease late;
        const int32_t content = 7;
        late.value = TakeValue(CreateValueLong(false, &content, nullptr));
        EXPECT_EQ(late.value->get_LLong(), 7);
    }).join();
}

TEST(ValuePool, KeepsNoMemoryForThreadsThatHaveEnded) {
    const auto run_thread = [] {
        std::thread([] {
            std::vector<ValuePtr> values;
            for (int32_t i = 0; i < 3000; ++i) {
                values.push_back(TakeValue(CreateValueLong(false, &i, nullptr)));
            }
        }).join();
    };
    run_thread();
    const std::size_t before = GetPoolMappedBytes();
    for (int i = 0; i < 100; ++i) {
        run_thread();
    }
    EXPECT_LE(GetPoolMappedBytes(), before);
}

}  // namespace
}  // namespace nbx
