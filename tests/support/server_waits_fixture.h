#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "base/server_waits.h"
#include "support/silent_server.h"

namespace mduckdb {

/** Looks again and again, as the timer does, until the condition holds; false after 20 seconds. */
template <class Condition>
bool EndUntil(ServerWaits& waits, Condition condition) {
    const auto end = Deadline::Clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (Deadline::Clock::now() > end) {
            return false;
        }
        waits.EndOnce();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

/** Looks so often that a wait which may be ended would have been. */
inline void EndOften(ServerWaits& waits) {
    for (int look = 0; look < 300; ++look) {
        waits.EndOnce();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

class ServerWaitsTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!std::ifstream("/proc/self/syscall").good()) {
            GTEST_SKIP() << "this system does not show what threads wait for";
        }
        ServerWaits::NoteClient();
    }
};

}  // namespace mduckdb
