#include "pool_slabs.h"

#include <algorithm>
#include <new>

#include "slab_memory.h"

namespace nbx::pool {
namespace {

/** Where the objects start; a whole cache line, so that no object shares one with the head. */
constexpr std::size_t kHeadSize = 64;
static_assert(sizeof(Slab) <= kHeadSize);

Slab* SlabOf(FreeObject* object) noexcept {
    return reinterpret_cast<Slab*>(reinterpret_cast<std::uintptr_t>(object) & ~(kSlabSize - 1));
}

bool HasRoom(const Slab& slab) noexcept {
    return slab.free != nullptr || slab.untouched != 0;
}

}  // namespace

uint32_t SlabStore::get_Capacity() const noexcept {
    return static_cast<uint32_t>((kSlabSize - kHeadSize) / object_size_);
}

void SlabStore::Link(Slab& slab) noexcept {
    slab.previous = nullptr;
    slab.next = roomy_;
    if (roomy_ != nullptr) {
        roomy_->previous = &slab;
    }
    roomy_ = &slab;
}

void SlabStore::Unlink(Slab& slab) noexcept {
    (slab.previous == nullptr ? roomy_ : slab.previous->next) = slab.next;
    if (slab.next != nullptr) {
        slab.next->previous = slab.previous;
    }
}

FreeObject* SlabStore::TakeFrom(Slab& slab, uint32_t count, uint32_t& taken) {
    FreeObject* list = nullptr;
    for (taken = 0; taken < count && slab.free != nullptr; ++taken) {
        FreeObject* const object = slab.free;
        slab.free = object->next;
        object->next = list;
        list = object;
    }
    char* const objects = reinterpret_cast<char*>(&slab) + kHeadSize;
    for (; taken < count && slab.untouched != 0; ++taken) {
        --slab.untouched;
        list = new (objects + slab.untouched * object_size_) FreeObject{list};
    }
    slab.live += taken;
    return list;
}

FreeObject* SlabStore::Take(uint32_t& count) {
    const MutexLock lock(mutex_);
    if (roomy_ == nullptr) {
        Link(*new (MapSlab()) Slab{nullptr, nullptr, nullptr, 0, get_Capacity()});
    }
    Slab& slab = *roomy_;
    FreeObject* const list = TakeFrom(slab, count, count);
    if (!HasRoom(slab)) {
        Unlink(slab);
    }
    return list;
}

FreeObject* SlabStore::ReturnRun(FreeObject* objects, Slab*& emptied) noexcept {
    Slab& slab = *SlabOf(objects);
    FreeObject* last = objects;
    uint32_t count = 1;
    while (last->next != nullptr && SlabOf(last->next) == &slab) {
        last = last->next;
        ++count;
    }
    FreeObject* const rest = last->next;
    const bool had_room = HasRoom(slab);
    last->next = slab.free;
    slab.free = objects;
    slab.live -= count;
    if (slab.live != 0) {
        if (!had_room) {
            Link(slab);
        }
    } else {
        if (had_room) {
            Unlink(slab);
        }
        slab.next = emptied;
        emptied = &slab;
    }
    return rest;
}

void SlabStore::Return(FreeObject* objects) noexcept {
    Slab* emptied = nullptr;
    {
        const MutexLock lock(mutex_);
        while (objects != nullptr) {
            objects = ReturnRun(objects, emptied);
        }
    }
    // The system's part is done without the lock: it takes longer than everything before.
    while (emptied != nullptr) {
        Slab* const next = emptied->next;
        UnmapSlab(emptied);
        emptied = next;
    }
}

}  // namespace nbx::pool
