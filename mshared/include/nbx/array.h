#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "nbx/unknown.h"
#include "nbx/value_pool.h"

namespace nbx {

/** Reference-counted growable array; the base of the host's two kinds of array. Indexes count from 0.

    An array is created with a reference count of 0. The object itself comes from the value pool, because
    a row set has an array for each row. No operation checks an index. Operations that add items throw
    `std::bad_alloc` and then leave the array unchanged. Several threads may read an array at once; a thread
    that changes it must be the only one that uses it. */
template <class T>
class Array : public Counted<I_Unknown> {
  public:
    static void* operator new(std::size_t size) { return AllocatePooled(size); }
    static void operator delete(void* memory, std::size_t size) noexcept { FreePooled(memory, size); }

    /** Always null: an array has no further interfaces. */
    void* QueryInterface(uint32_t /*interface_id*/) final { return nullptr; }

    std::size_t get_Count() const noexcept { return items_.size(); }
    bool get_IsEmpty() const noexcept { return items_.empty(); }
    /** `index` must be below the count. The reference is valid until the array changes. */
    const T& get_Item(std::size_t index) const noexcept { return items_[index]; }
    /** Replaces the item. `index` must be below the count. */
    void put_Item(std::size_t index, T item) { items_[index] = std::move(item); }
    /** Adds the item at the end. */
    void Append(T item) { items_.push_back(std::move(item)); }
    /** Allocates room for `count` items in total, so that appending them cannot fail or move items. */
    void Reserve(std::size_t count) { items_.reserve(count); }
    /** Removes the item and moves those behind it. `index` must be below the count. */
    void RemoveAt(std::size_t index) { items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index)); }
    /** Removes the first item that equals `item`. Returns false if there is none. */
    bool Remove(const T& item) {
        for (std::size_t i = 0; i < items_.size(); ++i) {
            if (items_[i] == item) {
                RemoveAt(i);
                return true;
            }
        }
        return false;
    }
    /** Removes the last item and returns it. The array must not be empty. */
    T TakeLast() {
        T item = std::move(items_.back());
        items_.pop_back();
        return item;
    }

    /** Iterators are valid until the array changes. */
    auto begin() const noexcept { return items_.begin(); }
    auto end() const noexcept { return items_.end(); }

  private:
    std::vector<T> items_;
};

/** Array of plain pointers. It holds no references: the objects must outlive their place in the array. */
template <class T>
class ArrayOfPtrs final : public Array<T> {};

/** Array of smart pointers. It holds a reference to each item and releases it with the item; items may be
    null. */
template <class T>
class ArrayOfSmartPtrs final : public Array<T> {};

}  // namespace nbx
