#include "nbx/value_pool.h"

#include <array>

#include "pool_cache.h"
#include "pool_slabs.h"
#include "slab_memory.h"

namespace nbx {
namespace pool {

constinit thread_local Cache gThreadCaches[kClassCount];

namespace {

constexpr uint32_t kCacheLimit = 512;
constexpr uint32_t kRefill = 128;

enum class ThreadState { kFresh, kRunning, kEnded };
constinit thread_local ThreadState gThreadState = ThreadState::kFresh;

constinit std::array<SlabStore, kClassCount> gStores{SlabStore(kClassSizes[0]), SlabStore(kClassSizes[1]),
                                                     SlabStore(kClassSizes[2]), SlabStore(kClassSizes[3]),
                                                     SlabStore(kClassSizes[4]), SlabStore(kClassSizes[5]),
                                                     SlabStore(kClassSizes[6])};

/** Gives all of a thread's free objects back when the thread ends. Objects that are released later still,
    by other thread-local or static objects, go straight to their slabs. */
struct ThreadEnd {
    ~ThreadEnd() {
        gThreadState = ThreadState::kEnded;
        for (std::size_t i = 0; i < kClassCount; ++i) {
            FreeObject* const objects = gThreadCaches[i].head;
            gThreadCaches[i] = {};
            if (objects != nullptr) {
                gStores[i].Return(objects);
            }
        }
    }
    void Register() noexcept { is_registered_ = true; }

  private:
    bool is_registered_ = false;
};
thread_local ThreadEnd gThreadEnd;

/** Cuts the first `count` objects off the cache and gives them back. */
void ReturnFirst(std::size_t size_class, uint32_t count) noexcept {
    Cache& cache = gThreadCaches[size_class];
    FreeObject* const first = cache.head;
    FreeObject* last = first;
    for (uint32_t i = 1; i < count; ++i) {
        last = last->next;
    }
    cache.head = last->next;
    cache.count -= count;
    last->next = nullptr;
    gStores[size_class].Return(first);
}

}  // namespace

void PrepareThread() noexcept {
    if (gThreadState == ThreadState::kFresh) {
        gThreadState = ThreadState::kRunning;
        gThreadEnd.Register();
        for (Cache& cache : gThreadCaches) {
            cache.limit = kCacheLimit;
        }
    }
}

void* AllocateSlowly(std::size_t size_class) {
    PrepareThread();
    uint32_t count = gThreadState == ThreadState::kEnded ? 1 : kRefill;
    FreeObject* const objects = gStores[size_class].Take(count);
    gThreadCaches[size_class].head = objects->next;
    gThreadCaches[size_class].count = count - 1;
    return objects;
}

void FreeSlowly(std::size_t size_class, FreeObject* object) noexcept {
    PrepareThread();
    object->next = nullptr;
    if (gThreadState == ThreadState::kEnded) {
        gStores[size_class].Return(object);
        return;
    }
    Cache& cache = gThreadCaches[size_class];
    if (cache.count >= cache.limit) {
        // Half stays, so that neither a run of releases nor one of allocations comes back at once.
        ReturnFirst(size_class, kCacheLimit / 2);
    }
    object->next = cache.head;
    cache.head = object;
    ++cache.count;
}

}  // namespace pool

void* AllocatePooled(std::size_t size) {
    return pool::Allocate(size);
}

void FreePooled(void* memory, std::size_t size) noexcept {
    pool::Free(memory, size);
}

std::size_t GetPoolMappedBytes() noexcept {
    return pool::GetMappedBytes();
}

}  // namespace nbx
