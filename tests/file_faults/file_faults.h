#pragma once

#include <array>
#include <cstdint>

/** Makes file operations fail that the module, DuckDB or the standard library calls. A library of
   its own, which a program links before every other one, so that its functions come before those of the C
   library. */
namespace file_faults {

/** `kEvery`: all of them together, as when a disk dies. */
enum class Call : uint32_t { kOpen, kRead, kWrite, kTruncate, kSync, kRename, kUnlink, kEvery };
constexpr uint32_t kCallCount = 8;

/** Not an `errno`: a read or write of half of the bytes. */
constexpr int kShort = -1;

struct Fault {
    Call call = Call::kOpen;
    /** From now on, counted from 1; 0 for none. */
    uint64_t n = 0;
    /** An `errno`, or `kShort`. */
    int error = 0;
    /** The calls after the n-th fail too. */
    bool is_for_ever = false;
};

/** Counts the calls on files and folders inside of the folder, with real paths, and lets them fail. */
__attribute__((visibility("default"))) void Begin(const char* folder, const Fault& fault) noexcept;
/** Ends that; the calls of each kind, those that failed included. */
__attribute__((visibility("default"))) std::array<uint64_t, kCallCount> End() noexcept;

}  // namespace file_faults
