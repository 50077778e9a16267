#pragma once

#include <cstddef>

#include "nbx/export.h"

namespace nbx {

/** Memory for a small object, from this thread's own store. Throws `std::bad_alloc`. */
NBX_API void* AllocatePooled(std::size_t size);
/** Gives memory of `AllocatePooled` back, on any thread; `size` is the size that was asked for. */
NBX_API void FreePooled(void* memory, std::size_t size) noexcept;

/** Bytes that the pool holds from the system now, in use or not; 0 where it is switched off because a
    sanitizer watches the memory. For tests and diagnosis. */
NBX_API std::size_t GetPoolMappedBytes() noexcept;

}  // namespace nbx
