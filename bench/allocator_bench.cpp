// The pool of values compared with a private heap of mimalloc: the same objects, created and released in the
// same orders, timed on one thread. Compare the two of one run; random interleaving of repetitions helps on a
// busy machine: --benchmark_repetitions=7 --benchmark_enable_random_interleaving=true
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "pool.h"

namespace {

/** Inline, as in the classes of the values. */
struct Pool {
    static void* Take(std::size_t size) { return nbx::pool::Allocate(size); }
    static void Give(void* memory, std::size_t size) { nbx::pool::Free(memory, size); }
};

/** Loaded rather than linked: the packaged library would otherwise replace the `malloc` of the whole process,
    including the pool's baseline. */
struct Mimalloc {
    static void* Take(std::size_t size) {
        static thread_local void* const heap = Get().make_heap();
        return Get().take(heap, size);
    }
    static void Give(void* memory, std::size_t /*size*/) { Get().give(memory); }

    static bool IsThere() { return Get().take != nullptr; }

  private:
    struct Calls {
        void* library = ::dlopen("libmimalloc.so.2.0", RTLD_NOW | RTLD_LOCAL);
        void* (*make_heap)() = Find<void* (*)()>("mi_heap_new");
        void* (*take)(void*, std::size_t) = Find<void* (*)(void*, std::size_t)>("mi_heap_malloc");
        void (*give)(void*) = Find<void (*)(void*)>("mi_free");

        template <class Call>
        Call Find(const char* name) const {
            return library == nullptr ? nullptr : reinterpret_cast<Call>(::dlsym(library, name));
        }
    };
    static const Calls& Get() {
        static const Calls calls;
        return calls;
    }
};

/** The cost of a value besides its memory: written at creation, read at release. */
struct Object {
    void* table;
    uint32_t references;
    uint32_t type;
};

template <class Memory>
Object* Make(std::size_t size) {
    return new (Memory::Take(size)) Object{nullptr, 1, 3};
}

template <class Memory>
void Release(Object* object, std::size_t size) {
    if (--object->references == 0) {
        Memory::Give(object, size);
    }
}

enum class Order { kAsMade, kShuffled };

/** Processor time of this thread, so that other programs have little influence. */
double ThreadSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

constexpr std::size_t kCount = 2'000'000;
/** A number and a row: five numbers for each row. */
constexpr std::size_t kNumberSize = 24;
constexpr std::size_t kRowSize = 40;

bool IsRow(std::size_t index) {
    return index % 6 == 5;
}

/** A server cursor: each value is released before the next one is created. */
template <class Memory>
void MakeAndRelease(benchmark::State& state) {
    for (auto _ : state) {
        Object* const object = Make<Memory>(kNumberSize);
        benchmark::DoNotOptimize(object);
        Release<Memory>(object, kNumberSize);
    }
}

/** A client cursor: creates all values, then releases all. Measures either phase. */
template <class Memory>
void Keep(benchmark::State& state, bool times_release, Order order, bool on_another_thread) {
    std::vector<std::size_t> indexes(kCount);
    for (std::size_t i = 0; i < kCount; ++i) {
        indexes[i] = i;
    }
    if (order == Order::kShuffled) {
        std::shuffle(indexes.begin(), indexes.end(), std::mt19937(7));
    }
    std::vector<Object*> objects(kCount);
    for (auto _ : state) {
        const double start = ThreadSeconds();
        for (std::size_t i = 0; i < kCount; ++i) {
            objects[i] = IsRow(i) ? Make<Memory>(kRowSize) : Make<Memory>(kNumberSize);
        }
        const double making = ThreadSeconds() - start;
        double releasing = 0;
        const auto release = [&] {
            const double release_start = ThreadSeconds();
            for (const std::size_t i : indexes) {
                if (IsRow(i)) {
                    Release<Memory>(objects[i], kRowSize);
                } else {
                    Release<Memory>(objects[i], kNumberSize);
                }
            }
            releasing = ThreadSeconds() - release_start;
        };
        if (on_another_thread) {
            std::thread(release).join();
        } else {
            release();
        }
        state.SetIterationTime(times_release ? releasing : making);
    }
    state.SetItemsProcessed(static_cast<int64_t>(kCount) * state.iterations());
}

template <class Memory>
void Register(const std::string& name) {
    const auto keep = [&](const char* what, bool times_release, Order order, bool on_another_thread) {
        benchmark::RegisterBenchmark((what + name).c_str(), Keep<Memory>, times_release, order,
                                     on_another_thread)
            ->UseManualTime()
            ->Iterations(10)
            ->Unit(benchmark::kMillisecond);
    };
    benchmark::RegisterBenchmark(("MakeAndRelease/" + name).c_str(), MakeAndRelease<Memory>);
    keep("Make/", false, Order::kAsMade, false);
    keep("Release/", true, Order::kAsMade, false);
    keep("ReleaseOnAnotherThread/", true, Order::kAsMade, true);
    keep("ReleaseShuffled/", true, Order::kShuffled, false);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Register<Pool>("pool");
    if (Mimalloc::IsThere()) {
        Register<Mimalloc>("mimalloc");
    } else {
        std::fputs("libmimalloc.so.2.0 is not installed: the pool alone is measured\n", stderr);
    }
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
