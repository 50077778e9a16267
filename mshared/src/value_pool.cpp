#include "nbx/value_pool.h"

#include <new>

namespace nbx {

void* AllocatePooled(std::size_t size) {
    return ::operator new(size);
}

void FreePooled(void* memory, std::size_t size) noexcept {
    ::operator delete(memory, size);
}

}  // namespace nbx
