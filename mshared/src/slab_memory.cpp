#include "slab_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

#include "nbx/engine_lock.h"
#include "pool_slabs.h"

namespace nbx::pool {
namespace {

/** Slabs are mapped sixteen at a time, since the call costs more than the address space does. */
constexpr std::size_t kRegionSize = 16 * kSlabSize;
constexpr std::size_t kMaxKept = 16;

struct KeptSlab {
    KeptSlab* next;
};

struct SlabMemory {
    Mutex mutex;
    KeptSlab* kept NBX_GUARDED_BY(mutex) = nullptr;
    std::size_t kept_count NBX_GUARDED_BY(mutex) = 0;
    /** The part of the last region that nobody has had yet. */
    char* region_next NBX_GUARDED_BY(mutex) = nullptr;
    char* region_end NBX_GUARDED_BY(mutex) = nullptr;
    std::size_t mapped NBX_GUARDED_BY(mutex) = 0;
};

// Needs no destructor: the last objects may be released after all others are gone.
constinit SlabMemory gSlabMemory;

char* MapAnywhere(std::size_t size) {
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return static_cast<char*>(memory);
}

/** Maps more than is asked for and gives back what lies before and after the aligned part. */
char* MapAligned(std::size_t size) {
    char* const memory = MapAnywhere(size + kSlabSize);
    const std::size_t excess = reinterpret_cast<std::uintptr_t>(memory) % kSlabSize;
    const std::size_t before = excess == 0 ? 0 : kSlabSize - excess;
    if (before != 0) {
        ::munmap(memory, before);
    }
    ::munmap(memory + before + size, kSlabSize - before);
    return memory + before;
}

}  // namespace

void* MapSlab() {
    const MutexLock lock(gSlabMemory.mutex);
    if (gSlabMemory.kept != nullptr) {
        KeptSlab* const slab = gSlabMemory.kept;
        gSlabMemory.kept = slab->next;
        --gSlabMemory.kept_count;
        return slab;
    }
    if (gSlabMemory.region_next == gSlabMemory.region_end) {
        gSlabMemory.region_next = MapAligned(kRegionSize);
        gSlabMemory.region_end = gSlabMemory.region_next + kRegionSize;
        gSlabMemory.mapped += kRegionSize;
    }
    char* const slab = gSlabMemory.region_next;
    gSlabMemory.region_next += kSlabSize;
    return slab;
}

void UnmapSlab(void* memory) noexcept {
    const MutexLock lock(gSlabMemory.mutex);
    // The system refuses when the hole would make one mapping too many; then the memory is kept as well.
    if (gSlabMemory.kept_count >= kMaxKept && ::munmap(memory, kSlabSize) == 0) {
        gSlabMemory.mapped -= kSlabSize;
        return;
    }
    gSlabMemory.kept = new (memory) KeptSlab{gSlabMemory.kept};
    ++gSlabMemory.kept_count;
}

std::size_t GetMappedBytes() noexcept {
    const MutexLock lock(gSlabMemory.mutex);
    return gSlabMemory.mapped;
}

}  // namespace nbx::pool
