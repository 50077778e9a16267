#pragma once

#include <unistd.h>

#include <utility>

namespace mduckdb {

/** An owned file descriptor, or none. */
class Descriptor {
  public:
    Descriptor() noexcept = default;
    /** Takes ownership; negative: none. */
    explicit Descriptor(int number) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { Close(); }

    int get() const noexcept { return number_; }
    /** Leaves it open, for the caller or for as long as the process lives. */
    int Release() noexcept { return std::exchange(number_, -1); }
    void Close() noexcept {
        if (number_ >= 0) {
            close(Release());
        }
    }

  private:
    int number_ = -1;
};

}  // namespace mduckdb
