#pragma once

#include <pthread.h>

#include <atomic>

#include "nbx/unknown.h"

namespace mduckdb {

/** Knows while an object of the module reads host values, and on which thread. The host's own classes of
    values may call the module in their methods, also what closes the object's database, but not the object
    itself, which is between two states. From any thread.

    Neither call waits, and a value may wait for any lock of the host. So what must not wait for a value sets
    a mark and asks whether the object reads; who reads looks for the mark when the scope has begun and again
    when it has ended. One of the two always sees the other, as these accesses have one order. */
class HostValueReading : nbx::noncopyable {
  public:
    /** The object reads values in this scope, one scope at a time. */
    class Scope : nbx::noncopyable {
      public:
        explicit Scope(HostValueReading& reading) noexcept : reading_(reading) {
            reading_.thread_.store(pthread_self());
        }
        ~Scope() { reading_.thread_.store(kNone); }

      private:
        HostValueReading& reading_;
    };

    /** Whether this thread is in a method of a value that the object reads. What another thread stores is
       never this thread's number, so no order is needed. */
    bool IsHere() const noexcept {
        const pthread_t thread = thread_.load(std::memory_order_relaxed);
        return thread != kNone && thread == pthread_self();
    }

    /** Whether any thread is in such a scope. */
    bool IsAnywhere() const noexcept { return thread_.load() != kNone; }

  private:
    static constexpr pthread_t kNone = 0;
    std::atomic<pthread_t> thread_{kNone};
};

}  // namespace mduckdb
