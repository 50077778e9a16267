#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>

// With AddressSanitizer each object is an allocation of its own, so that a use after its release is detected.
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

/** The part of the pool that each thread has to itself, inline for the classes of this library. The
    memory that all threads share is behind the functions at the end.

    Why a pool: a row set is millions of objects of few sizes. A value that is released at once costs a few
    instructions here and no lock, and released row sets leave no fragments between other allocations. */
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

/** `kClassCount` for sizes that are not pooled. */
constexpr std::size_t ClassOf(std::size_t size) noexcept {
    return size > kLargestPooled ? kClassCount : kClassOfWords[(size + 7) / 8];
}

/** Bytes of a slab, and its alignment: an object's slab follows from the object's address. */
inline constexpr std::size_t kSlabSize = std::size_t{32} * 1024;

/** The first bytes of a free object. */
struct FreeObject {
    FreeObject* next;
};

struct Slab;

inline Slab* SlabOf(const void* object) noexcept {
    return reinterpret_cast<Slab*>(reinterpret_cast<std::uintptr_t>(object) & ~(kSlabSize - 1));
}

/** Free objects of one slab; `slab` stays when they are gone. */
struct ObjectList {
    FreeObject* head = nullptr;
    Slab* slab = nullptr;
    uint32_t count = 0;

    void Push(FreeObject* object) noexcept {
        object->next = head;
        head = object;
        ++count;
    }
    FreeObject* Pop() noexcept {
        FreeObject* const object = head;
        head = object->next;
        --count;
        return object;
    }
};

/** Released objects of one slab, in a list that ends with `last`, so that it joins its slab's list in one
    step. The first object is there from the start. */
struct Run {
    ObjectList objects;
    FreeObject* last = nullptr;
};

/** A thread's free objects of one size. Objects are released in runs of one slab, since they were made so:
    a run is returned in one step, without touching its objects. A thread holds free objects of at most two
    slabs, so that idle threads do not keep the memory of a large row set. */
struct Cache {
    /** Serves the allocations. */
    ObjectList ready;
    /** Receives objects that are released to a slab other than that of `ready`. */
    Run returned;
};

// A process loads the library at its start, so these few bytes of thread storage can have a fixed place.
extern constinit thread_local Cache gThreadCaches[kClassCount] __attribute__((tls_model("initial-exec")));

/** Refills the thread's cache and returns one object. Throws `std::bad_alloc`. */
void* AllocateSlowly(std::size_t size_class);
/** Frees an object whose slab is neither of the cache's two. */
void FreeSlowly(std::size_t size_class, FreeObject* object) noexcept;
/** Sets this thread's caches up ahead of their first use. */
void PrepareThread() noexcept;

inline void* Allocate(std::size_t size) {
    const std::size_t size_class = ClassOf(size);
    if (NBX_POOL_IS_OFF != 0 || size_class == kClassCount) {
        return ::operator new(size);
    }
    ObjectList& ready = gThreadCaches[size_class].ready;
    return ready.head == nullptr ? AllocateSlowly(size_class) : ready.Pop();
}

inline void Free(void* memory, std::size_t size) noexcept {
    const std::size_t size_class = ClassOf(size);
    if (NBX_POOL_IS_OFF != 0 || size_class == kClassCount) {
        ::operator delete(memory);
        return;
    }
    auto* const object = static_cast<FreeObject*>(memory);
    const Slab* const slab = SlabOf(object);
    Cache& cache = gThreadCaches[size_class];
    if (cache.ready.slab == slab) {
        cache.ready.Push(object);
    } else if (cache.returned.objects.slab == slab) {
        cache.returned.objects.Push(object);
    } else {
        FreeSlowly(size_class, object);
    }
}

/** Free objects of one slab, 1 to a slab's worth of them, and at most one when `only_one` is set. Throws
    `std::bad_alloc`. */
ObjectList TakeObjects(std::size_t size_class, bool only_one);
/** Returns the objects of some runs to their slabs. Slabs and regions without objects in use are unmapped,
    apart from a few. */
void ReturnObjects(std::span<const Run> runs) noexcept;
/** Bytes that are mapped now, in use or not. */
std::size_t GetMappedBytes() noexcept;

}  // namespace nbx::pool
