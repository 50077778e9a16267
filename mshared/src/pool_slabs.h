#pragma once

#include <cstddef>
#include <cstdint>

#include "nbx/engine_lock.h"
#include "pool_cache.h"

namespace nbx::pool {

/** The head of a piece of memory that holds objects of one size. The store's lock guards it. */
struct Slab {
    /** Neighbours in the list of slabs with room. */
    Slab* previous;
    Slab* next;
    FreeObject* free;
    /** Objects that are with threads or their users. */
    uint32_t live;
    /** Objects, from the last one down, that have never been handed out and whose memory is untouched. */
    uint32_t untouched;
};

/** The slabs of one object size, shared by all threads. Threads come here for many objects at a time. */
class SlabStore : noncopyable {
  public:
    explicit constexpr SlabStore(std::size_t object_size) noexcept : object_size_(object_size) {}

    /** A list of 1 to `count` objects; puts their number into `count`. Throws `std::bad_alloc` when there is
        not even one. */
    FreeObject* Take(uint32_t& count) NBX_EXCLUDES(mutex_);
    /** Takes a list of objects back. A slab that becomes empty goes back to the system. */
    void Return(FreeObject* objects) noexcept NBX_EXCLUDES(mutex_);

  private:
    uint32_t get_Capacity() const noexcept;
    FreeObject* TakeFrom(Slab& slab, uint32_t count, uint32_t& taken) NBX_REQUIRES(mutex_);
    void Link(Slab& slab) noexcept NBX_REQUIRES(mutex_);
    void Unlink(Slab& slab) noexcept NBX_REQUIRES(mutex_);
    /** Takes back the objects at the head of the list that are of one slab; gives the rest of the list. */
    FreeObject* ReturnRun(FreeObject* objects, Slab*& emptied) noexcept NBX_REQUIRES(mutex_);

    std::size_t object_size_;
    Mutex mutex_;
    /** First of the slabs with room. */
    Slab* roomy_ NBX_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace nbx::pool
