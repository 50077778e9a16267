#pragma once

#include <chrono>
#include <filesystem>
#include <thread>

inline std::size_t CountThreads() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(threads), end(threads)));
}

/** The process's threads once there are no more than expected, or those of ten seconds later: the system
 * counts a thread until it has left the kernel, a moment after whoever joins it goes on. */
inline std::size_t CountThreadsAfterJoin(std::size_t expected) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::size_t count = CountThreads();
    while (count > expected && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        count = CountThreads();
    }
    return count;
}
