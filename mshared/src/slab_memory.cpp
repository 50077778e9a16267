#include "slab_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

#include "nbx/engine_lock.h"

namespace nbx::pool {
namespace {

/** Slabs are mapped so many at a time, since the call costs more than the address space does: one huge page
    of the processor, where the system has such. */
constexpr std::size_t kRegionSize = std::size_t{2} * 1024 * 1024;
/** Up to here memory comes in small pages, so that a process with few values touches little. Beyond, there
    are row sets, and whoever reads them at random waits for the translation of addresses most. */
constexpr std::size_t kSmallPagesUpTo = 8 * kRegionSize;
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

/** Memory aligned to its size, a power of two: maps twice as much and gives back what lies around it. */
char* MapAligned(std::size_t size) {
    char* const memory = MapAnywhere(2 * size);
    const std::size_t excess = reinterpret_cast<std::uintptr_t>(memory) % size;
    const std::size_t before = excess == 0 ? 0 : size - excess;
    if (before != 0) {
        ::munmap(memory, before);
    }
    ::munmap(memory + before + size, size - before);
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
        if (gSlabMemory.mapped >= kSmallPagesUpTo) {
            // Advice: where it is refused, small pages do.
            ::madvise(gSlabMemory.region_next, kRegionSize, MADV_HUGEPAGE);
        }
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
