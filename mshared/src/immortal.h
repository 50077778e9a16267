#pragma once

#include <cstddef>
#include <new>

namespace nbx {

/** The only object of type `T` in the process, created at the first call. It is never destroyed, since
    objects that are destroyed at the very end of the process may still use it. It needs no memory from the
    heap, so the first call cannot fail. Thread-safe. */
template <class T>
T& GetImmortal() noexcept(noexcept(T())) {
    alignas(T) static std::byte memory[sizeof(T)];
    static T* const object = new (memory) T();
    return *object;
}

}  // namespace nbx
