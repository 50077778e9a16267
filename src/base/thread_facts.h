#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace mduckdb {

/** A call of the system in which a thread waits. */
struct SystemCall {
    uint64_t number;
    std::array<uint64_t, 6> arguments;
    /** The thread's stack pointer. */
    uint64_t stack;
};

/** What the system tells about a thread of this process; nothing where it does not tell, as without /proc or
    in a process that no debugger may look at. */
std::optional<SystemCall> ReadSystemCall(pid_t thread) noexcept;
/** How often the thread has stopped running. */
std::optional<uint64_t> ReadSwitches(pid_t thread) noexcept;
/** Where the C library's record of the thread has its list of robust mutexes; above the thread's stack, but
    for the main thread. */
std::optional<uint64_t> ReadRobustList(pid_t thread) noexcept;

/** The threads of this process; none when memory is short. */
std::vector<pid_t> ListThreads() noexcept;

/** Copies memory of this process that another thread may release meanwhile. */
bool CopyMemory(uint64_t address, void* to, std::size_t size) noexcept;

}  // namespace mduckdb
