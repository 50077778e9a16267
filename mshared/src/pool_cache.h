#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>

// With AddressSanitizer each object is an allocation of its own, so that a use after its release is seen.
#if defined(__SANITIZE_ADDRESS__)
#define NBX_POOL_IS_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NBX_POOL_IS_OFF 1
#endif
#endif
#ifndef NBX_POOL_IS_OFF
#define NBX_POOL_IS_OFF 0
#endif

/** The part of the pool that each thread has to itself, inline for the classes of this library. Everything
    else about the pool is in pool_slabs.h. */
namespace nbx::pool {

/** Sizes of the pooled objects; larger ones come from the heap. A row set is made of numbers, 24 bytes each,
    texts with their characters, and rows, 40 bytes. Objects are aligned to 8 bytes. */
inline constexpr std::size_t kClassSizes[] = {24, 32, 40, 48, 64, 96, 128};
inline constexpr std::size_t kClassCount = 7;
inline constexpr std::size_t kLargestPooled = kClassSizes[kClassCount - 1];

/** The class of each size in units of 8 bytes, rounded up. */
inline constexpr std::array<uint8_t, kLargestPooled / 8 + 1> kClassOfWords = [] {
    std::array<uint8_t, kLargestPooled / 8 + 1> classes{};
    uint8_t size_class = 0;
    for (std::size_t words = 0; words < classes.size(); ++words) {
        size_class = static_cast<uint8_t>(size_class + (words * 8 > kClassSizes[size_class] ? 1 : 0));
        classes[words] = size_class;
    }
    return classes;
}();

/** `kClassCount` for what is not pooled. */
constexpr std::size_t ClassOf(std::size_t size) noexcept {
    return size > kLargestPooled ? kClassCount : kClassOfWords[(size + 7) / 8];
}

/** What the first bytes of an object are while nobody uses it. */
struct FreeObject {
    FreeObject* next;
};

/** A thread's free objects of one size. A limit of 0 (before the thread's first release, and again when the
    thread ends) sends every release to `FreeSlowly`. */
struct Cache {
    FreeObject* head = nullptr;
    uint32_t count = 0;
    uint32_t limit = 0;
};

// The library is loaded by its users' link, so its few bytes of thread storage can have a fixed place.
extern constinit thread_local Cache gThreadCaches[kClassCount] __attribute__((tls_model("initial-exec")));

/** Refills the thread's cache and gives one object. Throws `std::bad_alloc`. */
void* AllocateSlowly(std::size_t size_class);
/** Makes room in the thread's cache and takes the object into it. */
void FreeSlowly(std::size_t size_class, FreeObject* object) noexcept;
/** Sets this thread's caches up ahead of their first use. */
void PrepareThread() noexcept;

inline void* Allocate(std::size_t size) {
    const std::size_t size_class = ClassOf(size);
    if (NBX_POOL_IS_OFF != 0 || size_class == kClassCount) {
        return ::operator new(size);
    }
    Cache& cache = gThreadCaches[size_class];
    FreeObject* const object = cache.head;
    if (object == nullptr) {
        return AllocateSlowly(size_class);
    }
    cache.head = object->next;
    --cache.count;
    return object;
}

inline void Free(void* memory, std::size_t size) noexcept {
    const std::size_t size_class = ClassOf(size);
    if (NBX_POOL_IS_OFF != 0 || size_class == kClassCount) {
        ::operator delete(memory);
        return;
    }
    auto* const object = static_cast<FreeObject*>(memory);
    Cache& cache = gThreadCaches[size_class];
    if (cache.count >= cache.limit) {
        FreeSlowly(size_class, object);
        return;
    }
    object->next = cache.head;
    cache.head = object;
    ++cache.count;
}

}  // namespace nbx::pool
