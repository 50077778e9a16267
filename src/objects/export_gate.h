#pragma once

#include <condition_variable>
#include <mutex>

#include "base/engine_lock.h"

namespace mduckdb {

/** Counts the work of one database that runs without the engine lock. A thread that waits for its end may or
    may not hold that lock. Exports begin under the lock, so that none can begin while a database closes;
    appenders store rows without it. */
class ExportGate : nbx::noncopyable {
  public:
    void Begin() NBX_REQUIRES(gEngineLock) { BeginUnlocked(); }
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

    /** Work that began without the engine lock. */
    class Scope : nbx::noncopyable {
      public:
        explicit Scope(ExportGate& gate) : gate_(gate) { gate_.BeginUnlocked(); }
        ~Scope() { gate_.End(); }

      private:
        ExportGate& gate_;
    };

  private:
    void BeginUnlocked() {
        const std::scoped_lock lock(mutex_);
        ++running_;
    }

    mutable std::mutex mutex_;
    std::condition_variable ended_;
    int running_ = 0;
};

}  // namespace mduckdb
