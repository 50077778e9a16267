#pragma once

#include <atomic>
#include <chrono>

#include "nbx/unknown.h"

namespace mduckdb {

/** Cuts an operation that takes too long. From the given time on a function is called, again and again until
    this object is destroyed: an operation that had not really begun at the first call is cut by a later one.

    The calls come from a thread that this library starts with its first deadline and joins when it is
    unloaded or the process exits. */
class Deadline : nbx::noncopyable {
  public:
    using Clock = std::chrono::steady_clock;
    /** Called on the timer's thread. Must return soon, because it holds up all other deadlines, and must not
        destroy a deadline. It may wait for a lock only if no thread destroys a deadline under that lock. */
    using Cut = void (*)(void* target) noexcept;

    /** Throws `std::system_error` if no thread can be started, and `std::bad_alloc`. */
    Deadline(Clock::time_point time, Cut cut, void* target);
    /** Waits for a running call; afterwards there is none. */
    ~Deadline();

    Clock::time_point get_Time() const noexcept { return time_; }
    /** Whether the function has been called. */
    bool get_HasCut() const noexcept { return has_cut_.load(); }

  private:
    friend class Timer;

    const Clock::time_point time_;
    const Cut cut_;
    void* const target_;
    std::atomic<bool> has_cut_{false};

    // Guarded by the timer's mutex.
    class Timer& timer_;
    Clock::time_point next_call_;
    Deadline* previous_ = nullptr;
    Deadline* next_ = nullptr;
};

}  // namespace mduckdb
