// A day's work for as long as MDUCKDB_TEST_SOAK_SECONDS says: what the process holds at the end of a round
// does not grow.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "database/handle_balance.h"
#include "engines/idle_engines.h"
#include "soak/day.h"
#include "support/environment.h"
#include "support/thread_count.h"

namespace {

using Clock = std::chrono::steady_clock;

/** What a process holds when nothing is open. */
struct Holdings {
    int64_t resident_kb = 0;
    int64_t threads = 0;
    int64_t descriptors = 0;
    int64_t engines = 0;
    int64_t connections = 0;
};

int64_t ReadStatus(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":")) {
            return std::strtoll(line.c_str() + name.size() + 1, nullptr, 10);
        }
    }
    return -1;
}

Holdings Look(std::size_t expected_threads) {
    mduckdb::IdleEngines::CloseAll();
    // Free memory that the C library keeps is no growth.
    malloc_trim(0);
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return {ReadStatus("VmRSS"), static_cast<int64_t>(CountThreadsAfterJoin(expected_threads)),
            std::distance(begin(all), end(all)), handle_balance::CountEngines(),
            handle_balance::CountConnections()};
}

/** The most of the rounds in a part of the run; peaks come and go. */
int64_t Most(const std::vector<Holdings>& rounds, std::size_t begin, std::size_t end,
             int64_t Holdings::*what) {
    int64_t most = 0;
    for (std::size_t i = begin; i < end; ++i) {
        most = std::max(most, rounds[i].*what);
    }
    return most;
}

/** The most of each tenth: one step, a slow growth, and a single peak look different. */
void PrintCourse(const std::vector<Holdings>& rounds, const char* name, int64_t Holdings::*what) {
    constexpr std::size_t kParts = 10;
    std::cout << name << " by tenths:";
    for (std::size_t i = 0; i < kParts; ++i) {
        std::cout << " " << Most(rounds, rounds.size() * i / kParts, rounds.size() * (i + 1) / kParts, what);
    }
    std::cout << "\n";
}

/** No more in the last third of the rounds after the warm-up than in the first, but for the part that may be
 * more. */
void ExpectFlat(const std::vector<Holdings>& rounds, const char* name, int64_t Holdings::*what,
                double tolerance) {
    const std::size_t third = rounds.size() / 3;
    const int64_t first = Most(rounds, 0, third, what);
    const int64_t last = Most(rounds, rounds.size() - third, rounds.size(), what);
    std::cout << name << ": " << first << " at first, " << last << " at last\n";
    PrintCourse(rounds, name, what);
    EXPECT_LE(static_cast<double>(last), static_cast<double>(first) * (1 + tolerance)) << name;
}

TEST(Soak, TheSameWorkAgainAndAgainHoldsNoMore) {
    const int seconds = NumberFromEnvironment("MDUCKDB_TEST_SOAK_SECONDS", 6);
    const int given = NumberFromEnvironment("MDUCKDB_TEST_SEED", 0);
    const uint64_t seed = given != 0 ? static_cast<uint64_t>(given) : std::random_device()() % 1'000'000 + 1;
    std::cout << "MDUCKDB_TEST_SEED=" << seed << ", " << seconds << " s\n";
    const std::size_t threads = CountThreads();
    Day day(seed);
    const Clock::time_point start = Clock::now();
    const auto warm = start + std::chrono::seconds(seconds) / 6;
    const auto end = start + std::chrono::seconds(seconds);
    std::vector<Holdings> rounds;
    // A busy machine still gets enough of them to compare.
    constexpr std::size_t kFewestRounds = 24;
    while (Clock::now() < end || rounds.size() < kFewestRounds) {
        day.WorkOneRound();
        const Holdings now = Look(threads);
        if (Clock::now() >= warm) {
            rounds.push_back(now);
        }
    }
    std::cout << rounds.size() << " rounds after the warm-up, " << day.get_Operations() << " operations\n";
    ExpectFlat(rounds, "engines", &Holdings::engines, 0);
    ExpectFlat(rounds, "connections", &Holdings::connections, 0);
    ExpectFlat(rounds, "descriptors", &Holdings::descriptors, 0);
    ExpectFlat(rounds, "threads", &Holdings::threads, 0);
#ifndef MDUCKDB_TEST_IS_SANITIZED
    // The short form is over before allocators have all that they will keep.
    constexpr int kLongRun = 600;
    ExpectFlat(rounds, "resident kB", &Holdings::resident_kb, seconds >= kLongRun ? 0.02 : 0.1);
#endif
}

}  // namespace
