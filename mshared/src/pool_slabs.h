#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "pool_cache.h"

/** The memory that all threads share. It comes from the system in regions of 2 MiB, the size of a huge page
    of the processor; a region is cut into slabs, and a slab into objects of one size. One lock guards it all:
    threads come here once for a hundred objects or for a run of released ones. */
namespace nbx::pool {

/** Free objects of one slab, 1 to a slab's worth of them, and at most one when `only_one` is set. Throws
    `std::bad_alloc`. */
ObjectList TakeObjects(std::size_t size_class, bool only_one);
/** Takes the objects of some runs back. Slabs and regions without objects in use go back to
    the system, apart from a few. */
void ReturnObjects(std::span<const Run> runs) noexcept;
/** Bytes that are mapped now, in use or not. */
std::size_t GetMappedBytes() noexcept;

}  // namespace nbx::pool
