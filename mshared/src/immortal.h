#pragma once

#include <cstddef>
#include <new>

namespace nbx {

/** The one object of type `T` of the process, made at the first call. It is never destroyed, since objects
   that go at the very end of the process may still use it, and it needs no memory from the heap, so that the
   first call cannot fail. */
template <class T>
T& GetImmortal() noexcept(noexcept(T())) {
    alignas(T) static std::byte memory[sizeof(T)];
    static T* const object = new (memory) T();
    return *object;
}

}  // namespace nbx
