#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "base/holders.h"
#include "nbx/value.h"

namespace mduckdb {

/** Arrays and references inside one another go this deep; what is deeper cannot be bound. */
constexpr unsigned kMaxHostValueDepth = 200;

/** The walk through an array or a reference and all that is in it. DuckDB's value may take a few times the
    memory of the host's, and up to 64 MiB more: a value that contains itself, that repeats what it holds at
   each level, or whose text grows at each level (each escapes the quotes of the one inside) would take any
   amount, and is refused. */
class HostValueWalk {
  public:
    /** Makes a value of `inner`, which is in the array or reference of the walk, with `make(value)`. Empty
       when that is too deep, contains itself or repeats too much. */
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

    /** Bytes that a visited value has. */
    void Count(uint64_t size) noexcept { own_size_ += size; }
    /** Bytes of the values visited so far, without texts made of lists. */
    uint64_t get_OwnSize() const noexcept { return own_size_; }

    /** Counts the text of a list whose values have `own_size` bytes; false when it is too long. */
    bool CountText(uint64_t length, uint64_t own_size) noexcept {
        texts_size_ += length;
        return length <= kMostText + 2 * own_size;
    }

  private:
    static constexpr uint64_t kMiB = uint64_t{1} << 20U;
    static constexpr uint64_t kPlainSize = 64;
    /** What is no larger may be repeated: it takes a multiple of the pointer to it. */
    static constexpr uint64_t kSmallSize = 256;
    static constexpr uint64_t kMostText = 4 * kMiB;
    static constexpr uint64_t kMostRepeated = 8 * kMiB;

    struct Shared {
        /** Keeps the value, since the key is its address. */
        nbx::smart_ptr<nbx::I_Value> value;
        uint64_t size = 0;
        bool is_open = true;
    };

    /** Whether the value may be met again: somebody refers to it besides one container and the caller. */
    static bool IsShared(const nbx::smart_ptr<nbx::I_Value>& value) {
        return value && value->get_RefsCount() > 2;
    }

    uint64_t get_Size() const noexcept { return own_size_ + texts_size_; }

    template <class Make>
    ValueHolder VisitShared(const nbx::smart_ptr<nbx::I_Value>& inner, Make make) {
        const auto [place, is_new] = shared_.try_emplace(inner.get());
        Shared& shared = place->second;  // stays where it is when others come
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
