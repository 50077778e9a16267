#pragma once

#include <cstdint>

#include "nbx/mrsql/duckdb_budget.h"

namespace mduckdb {

/** The module's budget, as `I_DuckDBBudget` describes it. From any thread, also while the caller has the turn
    on a file: takes a mutex of its own and the mutexes of the lists of open files, and writes no file. A
    budget is divided again whenever an engine opens or closes. */
class Budget {
  public:
    static constexpr uint32_t kMostThreads = 1024;
    /** What an engine gets at least. */
    static constexpr uint64_t kLeastMemory = uint64_t{16} * 1024 * 1024;

    static uint64_t get_MemoryMb() noexcept;
    static uint32_t get_Threads() noexcept;
    static void Put(uint64_t memory_mb, uint32_t threads) noexcept;
    static nbx::mrsql::DuckDBBudgetFigures get_Figures() noexcept;
};

}  // namespace mduckdb
