#pragma once

#include <chrono>
#include <filesystem>
#include <thread>

inline std::size_t CountThreads() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(threads), end(threads)));
}

/** Waits up to ten seconds until the process has no more threads than expected, and returns their number. A
   thread that has been joined is still counted for a moment, until it has left the kernel. */
inline std::size_t CountThreadsAfterJoin(std::size_t expected) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::size_t count = CountThreads();
    while (count > expected && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        count = CountThreads();
    }
    return count;
}
