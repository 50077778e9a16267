#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "base/holders.h"
#include "nbx/value.h"

namespace mduckdb {

/** How deep arrays and references may nest; deeper values cannot be bound. */
constexpr unsigned kMaxHostValueDepth = 200;

/** The walk through an array or a reference and everything inside it. DuckDB's value may take a few times the
    memory of the host's, and up to 64 MiB more. A value would take an unlimited amount if it contains itself,
    repeats its content at each level, or has a text that grows at each level (each escapes the quotes of the
    one inside); such values are refused. */
class HostValueWalk {
  public:
    /** Creates a value from `inner`, which is inside the array or reference of the walk, with `make(value)`.
       Empty when it is too deep, contains itself or repeats too much. */
    template <class Make>
    ValueHolder Visit(const nbx::smart_ptr<nbx::I_Value>& inner, Make make) {
        if (depth_ == kMaxHostValueDepth) {
            return {};
        }
        ++depth_;
        Count(kPlainSize);
        ValueHolder made = IsShared(inner) ? VisitShared(inner, make) : make(inner.get());
        --depth_;
        return made;
    }

    /** Bytes of a visited value. */
    void Count(uint64_t size) noexcept { own_size_ += size; }
    /** Bytes of the values visited so far, without the texts of lists. */
    uint64_t get_OwnSize() const noexcept { return own_size_; }

    /** Counts the text of a list whose values have `own_size` bytes; false when it is too long. */
    bool CountText(uint64_t length, uint64_t own_size) noexcept {
        texts_size_ += length;
        return length <= kMostText + 2 * own_size;
    }

  private:
    static constexpr uint64_t kMiB = uint64_t{1} << 20U;
    static constexpr uint64_t kPlainSize = 64;
    /** Values up to this size may be repeated: each copy takes only a multiple of the pointer to it. */
    static constexpr uint64_t kSmallSize = 256;
    static constexpr uint64_t kMostText = 4 * kMiB;
    static constexpr uint64_t kMostRepeated = 8 * kMiB;

    struct Shared {
        /** Holds the value, since the key is its address. */
        nbx::smart_ptr<nbx::I_Value> value;
        uint64_t size = 0;
        bool is_open = true;
    };

    /** Whether the walk may meet the value again: something other than one container and the caller refers to
        it. */
    static bool IsShared(const nbx::smart_ptr<nbx::I_Value>& value) {
        return value && value->get_RefsCount() > 2;
    }

    uint64_t get_Size() const noexcept { return own_size_ + texts_size_; }

    template <class Make>
    ValueHolder VisitShared(const nbx::smart_ptr<nbx::I_Value>& inner, Make make) {
        const auto [place, is_new] = shared_.try_emplace(inner.get());
        Shared& shared = place->second;  // does not move when others are added
        if (is_new) {
            shared.value = inner;
        } else if (shared.is_open || !CountRepeated(shared.size)) {
            return {};
        }
        shared.is_open = true;
        const uint64_t before = get_Size();
        ValueHolder made = make(inner.get());
        shared.is_open = false;
        shared.size = get_Size() - before;
        if (shared.size <= kSmallSize) {
            shared_.erase(inner.get());
        }
        return made;
    }

    bool CountRepeated(uint64_t size) noexcept {
        repeated_size_ += size;
        return repeated_size_ <= kMostRepeated;
    }

    unsigned depth_ = 0;
    uint64_t own_size_ = 0;
    uint64_t texts_size_ = 0;
    uint64_t repeated_size_ = 0;
    std::unordered_map<nbx::I_Value*, Shared> shared_;
};

}  // namespace mduckdb
