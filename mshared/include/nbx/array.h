#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "nbx/unknown.h"
#include "nbx/value_pool.h"

namespace nbx {

/** Reference-counted growable array; the base of the host's two kinds of array. Not for use by two
    threads at once when one of them changes it. */
template <class T>
class Array : public Counted<I_Unknown> {
  public:
    static void* operator new(std::size_t size) { return AllocatePooled(size); }
    static void operator delete(void* memory, std::size_t size) noexcept { FreePooled(memory, size); }

    void* QueryInterface(uint32_t /*interface_id*/) final { return nullptr; }

    std::size_t get_Count() const noexcept { return items_.size(); }
    bool get_IsEmpty() const noexcept { return items_.empty(); }
    /** `index` must be below the count. */
    const T& get_Item(std::size_t index) const noexcept { return items_[index]; }
    void put_Item(std::size_t index, T item) { items_[index] = std::move(item); }
    void Append(T item) { items_.push_back(std::move(item)); }
    void Reserve(std::size_t count) { items_.reserve(count); }
    void RemoveAt(std::size_t index) { items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index)); }
    /** Removes the first item that equals `item`; tells whether there was one. */
    bool Remove(const T& item) {
        for (std::size_t i = 0; i < items_.size(); ++i) {
            if (items_[i] == item) {
                RemoveAt(i);
                return true;
            }
        }
        return false;
    }
    /** Removes the last item and gives it. There must be one. */
    T TakeLast() {
        T item = std::move(items_.back());
        items_.pop_back();
        return item;
    }

    auto begin() const noexcept { return items_.begin(); }
    auto end() const noexcept { return items_.end(); }

  private:
    std::vector<T> items_;
};

/** Array of plain pointers; holds no references. */
template <class T>
class ArrayOfPtrs final : public Array<T> {};

/** Array of smart pointers; holds a reference to each item. */
template <class T>
class ArrayOfSmartPtrs final : public Array<T> {};

}  // namespace nbx
