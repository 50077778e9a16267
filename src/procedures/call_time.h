#pragma once

#include <chrono>
#include <string>

#include "base/deadline.h"

namespace mduckdb {

/** How long a call may run, counted from the creation of this. */
class CallTime {
  public:
    /** A limit of 0 is none. */
    CallTime(const char* procedure_name, std::chrono::milliseconds limit) noexcept
        : procedure_name_(procedure_name),
          limit_(limit),
          end_(limit.count() > 0 ? Deadline::Clock::now() + limit : Deadline::Clock::time_point::max()) {}

    bool get_IsLimited() const noexcept { return limit_.count() > 0; }
    Deadline::Clock::time_point get_End() const noexcept { return end_; }
    bool IsOver() const noexcept { return get_IsLimited() && Deadline::Clock::now() >= end_; }
    /** The error of a call whose time is over. */
    std::string DescribeEnd() const;
    [[noreturn]] void ThrowEnd() const;

  private:
    const char* procedure_name_;
    std::chrono::milliseconds limit_;
    Deadline::Clock::time_point end_;
};

}  // namespace mduckdb
