#include "engines/budget.h"

#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "duckdb_internals/engine_figures.h"
#include "engines/engine_files.h"
#include "engines/idle_engines.h"
#include "nbx/engine_lock.h"

namespace mduckdb {

namespace {

using nbx::OpenEngine;
using Figures = nbx::mrsql::DuckDBBudgetFigures;

constexpr uint64_t kMegabyte = 1'000'000;

/** Taken before the mutexes of the lists of open files. */
constinit nbx::Mutex gBudgetMutex;
std::atomic<uint64_t> gMemoryMb{0};
std::atomic<uint32_t> gThreads{0};

uint64_t GetMachineMemory() noexcept {
    return static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGE_SIZE));
}

/** Whether the engine's own options set the key. */
bool HasOption(const OpenEngine& engine, std::string_view key) {
    std::string_view text(engine.configuration, engine.configuration_length);
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find('\0'));
        if (word == key) {
            return true;
        }
        text.remove_prefix(std::min(word.size() + 1, text.size()));
    }
    return false;
}

bool HasOwnMemory(const OpenEngine& engine) {
    return HasOption(engine, "max_memory") || HasOption(engine, "memory_limit");
}

bool HasOwnThreads(const OpenEngine& engine) {
    return HasOption(engine, "threads");
}

/** What the engines take together, and what the options of some of them fix. */
struct Sums {
    Figures all;
    uint64_t fixed_memory = 0;
    uint32_t fixed_threads = 0;

    void Add(const OpenEngine& engine) {
        const EngineFigures figures = ReadEngineFigures(static_cast<duckdb_database>(engine.handle));
        const bool has_own_memory = HasOwnMemory(engine);
        const bool has_own_threads = HasOwnThreads(engine);
        ++all.engines;
        all.memory_shares += has_own_memory ? 0 : 1;
        all.thread_shares += has_own_threads ? 0 : 1;
        all.threads += figures.threads;
        all.memory_limit += figures.memory_limit;
        all.memory_used += figures.memory_used;
        fixed_memory += has_own_memory ? figures.memory_limit : 0;
        fixed_threads += has_own_threads ? figures.threads : 0;
    }
};

/** What each engine gets whose options do not say; 0 leaves it as it is. */
struct Shares {
    uint64_t memory = 0;
    uint32_t threads = 0;

    void Give(const OpenEngine& engine) const {
        SetEngineLimits(static_cast<duckdb_database>(engine.handle), HasOwnMemory(engine) ? 0 : memory,
                        HasOwnThreads(engine) ? 0 : threads);
    }
};

template <class Visitor>
void VisitEngines(Visitor& visitor) {
    const auto visit = [](void* context, const OpenEngine& engine) {
        if (engine.handle != nullptr && engine.library == get_DuckDBLibrary()) {
            static_cast<Visitor*>(context)->Add(engine);
        }
    };
    EngineFiles::Get().Visit(visit, &visitor);
    EngineFiles::Nameless().Visit(visit, &visitor);
}

struct Giver {
    const Shares& shares;
    void Add(const OpenEngine& engine) { shares.Give(engine); }
};

template <class Number>
Number ShareOf(Number budget, Number fixed, uint32_t count, Number least) {
    if (budget == 0 || count == 0) {
        return 0;
    }
    return std::max(least, static_cast<Number>((budget > fixed ? budget - fixed : 0) / count));
}

void DivideLocked() {
    Sums sums;
    VisitEngines(sums);
    const Shares shares{ShareOf(gMemoryMb.load() * kMegabyte, sums.fixed_memory, sums.all.memory_shares,
                                Budget::kLeastMemory),
                        ShareOf(gThreads.load(), sums.fixed_threads, sums.all.thread_shares, uint32_t{1})};
    Giver giver{shares};
    VisitEngines(giver);
}

void Divide() noexcept {
    const nbx::MutexLock lock(gBudgetMutex);
    DivideLocked();
}

/** Returns whether there is a budget now. */
bool Store(uint64_t memory_mb, uint32_t threads) noexcept {
    const nbx::MutexLock lock(gBudgetMutex);
    gMemoryMb.store(std::min(memory_mb, GetMachineMemory() / kMegabyte));
    gThreads.store(std::min(threads, Budget::kMostThreads));
    const bool is_set = gMemoryMb.load() > 0 || gThreads.load() > 0;
    EngineFiles::put_ChangeHandler(is_set ? &Divide : nullptr);
    DivideLocked();
    return is_set;
}

}  // namespace

uint64_t Budget::get_MemoryMb() noexcept {
    return gMemoryMb.load();
}

uint32_t Budget::get_Threads() noexcept {
    return gThreads.load();
}

void Budget::Put(uint64_t memory_mb, uint32_t threads) noexcept {
    const bool is_set = Store(memory_mb, threads);
    // With a budget an idle engine would take a share; without one, it would still have a share's limits.
    IdleEngines::put_IsOn(!is_set);
}

Figures Budget::get_Figures() noexcept {
    Sums sums;
    VisitEngines(sums);
    return sums.all;
}

}  // namespace mduckdb
