#include "nbx/value_pool.h"

#include <iterator>
#include <utility>

#include "pool.h"

namespace nbx {
namespace pool {

constinit thread_local Cache gThreadCaches[kClassCount];

namespace {

/** Runs that are returned together under one lock. Objects that are released in random order are runs of one
    object; a lock for each of them would make the processor wait for the memory of each. */
struct WaitingRuns {
    void Add(const Run& run) noexcept {
        runs_[count_] = run;
        ++count_;
        if (count_ == std::size(runs_) || run.objects.count >= kLongRun) {
            ReturnAll();
        }
    }
    void ReturnAll() noexcept { ReturnObjects({runs_, std::exchange(count_, 0)}); }

  private:
    static constexpr uint32_t kLongRun = 16;

    Run runs_[24] = {};
    std::size_t count_ = 0;
};
constinit thread_local WaitingRuns gWaiting;

/** Whether the thread's caches are set up, and whether they have been released again. A plain variable, so
    that it can be read after the thread's other objects are destroyed. */
enum class ThreadState { kFresh, kRunning, kEnded };
constinit thread_local ThreadState gThreadState = ThreadState::kFresh;

/** Objects that were never used as a run have no known last one, so it is searched, when a
    thread ends. */
Run MakeRun(const ObjectList& objects) noexcept {
    FreeObject* last = objects.head;
    while (last->next != nullptr) {
        last = last->next;
    }
    return {objects, last};
}

/** Returns all of a thread's free objects when the thread ends. Objects that are released later still, by
    other thread-local or static objects, go straight to their slabs. The thread registers the destructor at
    the first use of the object, which is `Register`. */
struct ThreadEnd {
    ~ThreadEnd() {
        gThreadState = ThreadState::kEnded;
        for (Cache& cache : gThreadCaches) {
            if (cache.returned.last != nullptr) {
                gWaiting.Add(cache.returned);
            }
            if (cache.ready.head != nullptr) {
                gWaiting.Add(MakeRun(cache.ready));
            }
            cache = {};
        }
        gWaiting.ReturnAll();
    }
    void Register() noexcept { is_registered_ = true; }

  private:
    bool is_registered_ = false;
};
thread_local ThreadEnd gThreadEnd;

}  // namespace

void PrepareThread() noexcept {
    if (gThreadState == ThreadState::kFresh) {
        gThreadState = ThreadState::kRunning;
        gThreadEnd.Register();
    }
}

void* AllocateSlowly(std::size_t size_class) {
    PrepareThread();
    if (gThreadState == ThreadState::kEnded) {
        return TakeObjects(size_class, true).head;
    }
    // This thread's own objects come before the shared ones: their memory is likely in the processor's cache.
    Cache& cache = gThreadCaches[size_class];
    if (cache.returned.last != nullptr) {
        cache.ready = std::exchange(cache.returned, {}).objects;
    } else {
        cache.ready = TakeObjects(size_class, false);
    }
    return cache.ready.Pop();
}

void FreeSlowly(std::size_t size_class, FreeObject* object) noexcept {
    PrepareThread();
    Run run;
    run.objects.slab = SlabOf(object);
    run.objects.Push(object);
    run.last = object;
    if (gThreadState == ThreadState::kEnded) {
        ReturnObjects({&run, 1});
        return;
    }
    // The slab is written when the run is returned, which is soon; its memory arrives meanwhile.
    __builtin_prefetch(run.objects.slab, 1);
    std::swap(run, gThreadCaches[size_class].returned);
    if (run.last != nullptr) {
        gWaiting.Add(run);
    }
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
