#pragma once

#include <cstddef>

#include "nbx/export.h"

namespace nbx {

/** Returns `size` bytes aligned to 8 bytes, from this thread's own store; sizes above 128 bytes come from the
    heap. The caller owns the memory until `FreePooled`. Throws `std::bad_alloc`. May be called at any time,
    also while the process or the thread ends. */
NBX_API void* AllocatePooled(std::size_t size);
/** Frees memory from `AllocatePooled`, on any thread. `size` must be the size that was requested; `memory`
    must not be null. */
NBX_API void FreePooled(void* memory, std::size_t size) noexcept;

/** Bytes that the pool has mapped from the system now, in use or not; 0 in a build with AddressSanitizer,
    where every object comes from the heap. For tests and diagnosis. Takes the pool's lock. */
NBX_API std::size_t GetPoolMappedBytes() noexcept;

}  // namespace nbx
