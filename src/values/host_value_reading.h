#pragma once

#include "nbx/unknown.h"

namespace mduckdb {

/** For its scope, this thread reads host values for an object of the module. The host's own classes of values
    may call the module in their methods, also what closes the object's database, but not the object itself,
    which is between two states. */
class HostValueReading : nbx::noncopyable {
  public:
    explicit HostValueReading(const void* reader) noexcept : reader_(reader), outer_(gInnermost) {
        gInnermost = this;
    }
    ~HostValueReading() { gInnermost = outer_; }

    /** Whether this thread is in a method of a host value that the object reads. */
    static bool IsFor(const void* reader) noexcept {
        const HostValueReading* reading = gInnermost;
        while (reading != nullptr && reading->reader_ != reader) {
            reading = reading->outer_;
        }
        return reading != nullptr;
    }

  private:
    static constinit thread_local const HostValueReading* gInnermost;

    const void* const reader_;
    const HostValueReading* const outer_;
};

}  // namespace mduckdb
