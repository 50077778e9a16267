#pragma once

#include <cstddef>

namespace nbx::pool {

/** Bytes of a slab, and its alignment: so an object's slab is found from the object's address. */
inline constexpr std::size_t kSlabSize = 64 * 1024;

/** Memory for one slab, aligned to its size, of any content. Throws `std::bad_alloc`. From any thread. */
void* MapSlab();
/** Gives the memory back. A few slabs are kept for the next `MapSlab`, so that a workload that goes up and
    down by a slab does not pay for new pages each time. */
void UnmapSlab(void* memory) noexcept;
/** Bytes that are mapped now, those of kept slabs included. */
std::size_t GetMappedBytes() noexcept;

}  // namespace nbx::pool
