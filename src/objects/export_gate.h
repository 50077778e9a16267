#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>

#include "base/engine_lock.h"

namespace mduckdb {

/** Counts the exports of one database that run without the engine lock. They begin under that lock and end
    without it, so that a thread that waits for their end may or may not hold it. */
class ExportGate : nbx::noncopyable {
  public:
    void Begin() NBX_REQUIRES(gEngineLock) {
        const std::scoped_lock lock(mutex_);
        ++running_;
    }
    /** The gate, and the database around it, may be destroyed as soon as this returns. */
    void End() noexcept {
        const std::scoped_lock lock(mutex_);
        --running_;
        // Under the mutex: a waiter that wakes up may destroy the gate.
        ended_.notify_all();
    }
    bool IsBusy() const {
        const std::scoped_lock lock(mutex_);
        return running_ > 0;
    }
    void Wait() {
        std::unique_lock lock(mutex_);
        ended_.wait(lock, [this] { return running_ == 0; });
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable ended_;
    int running_ = 0;
};

/** Takes the engine lock at a moment when no export of the database runs. It is not held while waiting,
    unless this thread held it before. */
class NBX_SCOPED_CAPABILITY IdleEngineLockScope : nbx::noncopyable {
  public:
    explicit IdleEngineLockScope(ExportGate& gate) NBX_ACQUIRE(gEngineLock) NBX_NO_THREAD_SAFETY_ANALYSIS {
        do {
            lock_.reset();
            gate.Wait();
            lock_.emplace();
        } while (gate.IsBusy());
    }
    ~IdleEngineLockScope() NBX_RELEASE() NBX_NO_THREAD_SAFETY_ANALYSIS {}

  private:
    std::optional<EngineLockScope> lock_;
};

}  // namespace mduckdb
