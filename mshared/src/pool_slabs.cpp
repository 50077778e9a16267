#include "pool.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <new>
#include <utility>

#include "nbx/engine_lock.h"

namespace nbx::pool {

/** The head of a piece of memory that holds objects of one size. */
struct Slab {
    /** Neighbours in the list of slabs of this size with free objects. */
    Slab* previous;
    Slab* next;
    ObjectList free;
    /** Objects, the last ones of the slab, that have never been handed out and whose memory is untouched. */
    uint32_t untouched;
    uint32_t size_class;
};

namespace {

constexpr std::size_t kRegionSize = std::size_t{2} * 1024 * 1024;
constexpr std::size_t kSlabsPerRegion = kRegionSize / kSlabSize;
static_assert(kSlabsPerRegion == 64, "a region's slabs are the bits of a word");
constexpr uint64_t kAllSlabs = ~uint64_t{0};
/** How many objects are taken from untouched memory at a time. */
constexpr uint32_t kTouchedAtOnce = 128;

/** Up to here memory comes in small pages, so that a process with few values touches little. Beyond, there
    are row sets; reading them at random mostly waits for the translation of addresses, which huge pages
    avoid. */
constexpr std::size_t kSmallPagesUpTo = kRegionSize;

/** A free region is unmapped as a whole, which is cheap, if this many slabs are free elsewhere: a workload
    that grows and shrinks by a few slabs does not pay for new pages each time. */
constexpr uint32_t kMinFreeSlabs = 32;
/** Single slabs are unmapped only if this many are free, since that splits a huge page. Row sets that are
    released in order empty whole regions before that. */
constexpr uint32_t kMaxFreeSlabs = 192;

/** The description of a region. It is in the region's first slab, behind the slab's own head, so the first
    slab stays mapped as long as any other does. */
struct Region {
    /** Neighbours in the list of regions with free slabs. */
    Region* previous;
    Region* next;
    /** Slabs that are not in use, one bit each. */
    uint64_t free;
    /** Slabs that have not been unmapped. */
    uint64_t mapped;
};

/** Where a region's description and a slab's objects start: whole cache lines, so that no object shares one
    with what other threads write. */
constexpr std::size_t kRegionOffset = 64;
constexpr std::size_t kHeadSize = 128;
static_assert(sizeof(Slab) <= kRegionOffset && kRegionOffset + sizeof(Region) <= kHeadSize);

template <class Node>
void Link(Node*& first, Node& node) noexcept {
    node.previous = nullptr;
    node.next = first;
    if (first != nullptr) {
        first->previous = &node;
    }
    first = &node;
}

template <class Node>
void Unlink(Node*& first, Node& node) noexcept {
    (node.previous == nullptr ? first : node.previous->next) = node.next;
    if (node.next != nullptr) {
        node.next->previous = node.previous;
    }
}

char* MapAnywhere(std::size_t size) {
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return static_cast<char*>(memory);
}

/** Memory aligned to its size, a power of two: maps twice as much and unmaps what surrounds it. */
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

/** Whether single slabs can be unmapped. Pages of arm64 may have 64 KiB: munmap would refuse a slab, or unmap
   its neighbour with it. */
bool IsSlabWholePages() noexcept {
    return kSlabSize % static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) == 0;
}

uint32_t CapacityOf(std::size_t size_class) noexcept {
    return static_cast<uint32_t>((kSlabSize - kHeadSize) / kClassSizes[size_class]);
}

char* BaseOf(Region& region) noexcept {
    return reinterpret_cast<char*>(&region) - kRegionOffset;
}

bool HasRoom(const Slab& slab) noexcept {
    return slab.free.count != 0 || slab.untouched != 0;
}

/** Takes up to `limit` objects, in ascending order, as the processor expects the reads and writes to come. */
ObjectList TakeUntouched(Slab& slab, uint32_t limit) noexcept {
    const std::size_t size = kClassSizes[slab.size_class];
    const uint32_t count = std::min(limit, slab.untouched);
    slab.untouched -= count;
    char* const end =
        reinterpret_cast<char*>(&slab) + kHeadSize + (CapacityOf(slab.size_class) - slab.untouched) * size;
    ObjectList taken;
    taken.slab = &slab;
    for (uint32_t i = 1; i <= count; ++i) {
        taken.Push(new (end - i * size) FreeObject{nullptr});
    }
    return taken;
}

/** The shared part of the pool; its lock is held in every call. */
class SharedMemory : noncopyable {
  public:
    Mutex mutex;

    ObjectList Take(std::size_t size_class, bool only_one) NBX_REQUIRES(mutex);
    void Return(const Run& run) noexcept NBX_REQUIRES(mutex);
    std::size_t get_Mapped() const noexcept NBX_REQUIRES(mutex) { return mapped_; }

  private:
    void MapRegion() NBX_REQUIRES(mutex);
    bool Unmap(char* memory, std::size_t size) noexcept NBX_REQUIRES(mutex);
    void UnmapRegion(Region& region) noexcept NBX_REQUIRES(mutex);
    Slab& TakeSlab(std::size_t size_class) NBX_REQUIRES(mutex);
    void ReturnSlab(Slab& slab) noexcept NBX_REQUIRES(mutex);

    /** First of the slabs with free objects, by size. */
    Slab* roomy_[kClassCount] NBX_GUARDED_BY(mutex) = {};
    /** First of the regions with free slabs, and how many those have together. */
    Region* regions_ NBX_GUARDED_BY(mutex) = nullptr;
    uint32_t free_slabs_ NBX_GUARDED_BY(mutex) = 0;
    std::size_t mapped_ NBX_GUARDED_BY(mutex) = 0;
};

void SharedMemory::MapRegion() {
    char* const memory = MapAligned(kRegionSize);
    if (mapped_ >= kSmallPagesUpTo) {
        // Only advice: if the system refuses, small pages work too.
        ::madvise(memory, kRegionSize, MADV_HUGEPAGE);
    }
    mapped_ += kRegionSize;
    Link(regions_, *new (memory + kRegionOffset) Region{nullptr, nullptr, kAllSlabs, kAllSlabs});
    free_slabs_ += kSlabsPerRegion;
}

/** False when the system refuses: the hole would make one mapping too many. */
bool SharedMemory::Unmap(char* memory, std::size_t size) noexcept {
    if (::munmap(memory, size) != 0) {
        return false;
    }
    mapped_ -= size;
    return true;
}

/** Unmaps a region whose slabs are all free. If single slabs were unmapped before, other memory may be in
    their places. Memory that the system refuses to unmap stays mapped: whole regions are used again, single
    slabs are lost. */
void SharedMemory::UnmapRegion(Region& region) noexcept {
    char* const memory = BaseOf(region);
    const uint64_t mapped = region.mapped;
    Unlink(regions_, region);
    free_slabs_ -= static_cast<uint32_t>(std::popcount(mapped));
    if (mapped == kAllSlabs) {
        if (!Unmap(memory, kRegionSize)) {
            Link(regions_, region);
            free_slabs_ += kSlabsPerRegion;
        }
        return;
    }
    for (std::size_t i = 0; i < kSlabsPerRegion; ++i) {
        if ((mapped >> i & 1U) != 0) {
            Unmap(memory + i * kSlabSize, kSlabSize);
        }
    }
}

Slab& SharedMemory::TakeSlab(std::size_t size_class) {
    if (regions_ == nullptr) {
        MapRegion();
    }
    Region& region = *regions_;
    const int index = std::countr_zero(region.free);
    region.free &= region.free - 1;
    --free_slabs_;
    if (region.free == 0) {
        Unlink(regions_, region);
    }
    char* const memory = BaseOf(region) + static_cast<std::size_t>(index) * kSlabSize;
    auto& slab =
        *new (memory) Slab{nullptr, nullptr, {}, CapacityOf(size_class), static_cast<uint32_t>(size_class)};
    Link(roomy_[size_class], slab);
    return slab;
}

void SharedMemory::ReturnSlab(Slab& slab) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(&slab);
    char* const memory = reinterpret_cast<char*>(&slab) - address % kRegionSize;
    Region& region = *std::launder(reinterpret_cast<Region*>(memory + kRegionOffset));
    const uint64_t bit = uint64_t{1} << (address % kRegionSize / kSlabSize);
    if (region.free == 0) {
        Link(regions_, region);
    }
    region.free |= bit;
    ++free_slabs_;
    if (region.free == region.mapped) {
        if (free_slabs_ >= kMinFreeSlabs + static_cast<uint32_t>(std::popcount(region.free))) {
            UnmapRegion(region);
        }
    } else if (free_slabs_ > kMaxFreeSlabs && bit != 1 && IsSlabWholePages() &&
               Unmap(reinterpret_cast<char*>(&slab), kSlabSize)) {
        region.free &= ~bit;
        region.mapped &= ~bit;
        --free_slabs_;
        if (region.free == 0) {
            Unlink(regions_, region);
        }
    }
}

ObjectList SharedMemory::Take(std::size_t size_class, bool only_one) {
    Slab& slab = roomy_[size_class] != nullptr ? *roomy_[size_class] : TakeSlab(size_class);
    ObjectList taken;
    taken.slab = &slab;
    if (slab.free.count != 0 && !only_one) {
        std::swap(taken, slab.free);
        taken.slab = &slab;
    } else if (slab.free.count != 0) {
        taken.Push(slab.free.Pop());
    } else {
        taken = TakeUntouched(slab, only_one ? 1 : kTouchedAtOnce);
    }
    if (!HasRoom(slab)) {
        Unlink(roomy_[size_class], slab);
    }
    return taken;
}

void SharedMemory::Return(const Run& run) noexcept {
    Slab& slab = *run.objects.slab;
    if (!HasRoom(slab)) {
        Link(roomy_[slab.size_class], slab);
    }
    run.last->next = slab.free.head;
    slab.free.head = run.objects.head;
    slab.free.count += run.objects.count;
    if (slab.free.count + slab.untouched == CapacityOf(slab.size_class)) {
        Unlink(roomy_[slab.size_class], slab);
        ReturnSlab(slab);
    }
}

// Needs no destructor: the last objects may be released after all others are gone.
constinit SharedMemory gShared;

void LockShared() noexcept NBX_NO_THREAD_SAFETY_ANALYSIS {
    gShared.mutex.lock();
}
void UnlockShared() noexcept NBX_NO_THREAD_SAFETY_ANALYSIS {
    gShared.mutex.unlock();
}

/** A child that a fork makes has only the thread that forked: it must not inherit the lock from another. */
const int gForkHandlers = ::pthread_atfork(&LockShared, &UnlockShared, &UnlockShared);

}  // namespace

ObjectList TakeObjects(std::size_t size_class, bool only_one) {
    const MutexLock lock(gShared.mutex);
    return gShared.Take(size_class, only_one);
}

void ReturnObjects(std::span<const Run> runs) noexcept {
    const MutexLock lock(gShared.mutex);
    for (const Run& run : runs) {
        gShared.Return(run);
    }
}

std::size_t GetMappedBytes() noexcept {
    const MutexLock lock(gShared.mutex);
    return gShared.get_Mapped();
}

}  // namespace nbx::pool
