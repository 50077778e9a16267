#pragma once

#include <cstdint>

#include "nbx/export.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBBudget` for `QueryInterface` of the extension. */
constexpr uint32_t kDuckDBBudgetInterfaceId = 7312;

/** What all engines of this module take together. */
struct DuckDBBudgetFigures {
    /** Open engines, and how many of them have a share of the memory and of the threads. */
    uint32_t engines = 0;
    uint32_t memory_shares = 0;
    uint32_t thread_shares = 0;
    /** Sums over all engines: the threads they have, the bytes they may take, the bytes they take now. */
    uint32_t threads = 0;
    uint64_t memory_limit = 0;
    uint64_t memory_used = 0;
};

/** One budget for the engines that this module has open: those of databases and of procedures' calls.

    What the options of an engine fix counts first. The rest is divided evenly among the engines whose options
   leave it open, whenever an engine opens or closes. Each gets at least 16 MiB and one thread, so that many
   engines may exceed a small budget. An engine that takes more than its share keeps what it takes until the
   next division. A changed number of threads takes effect at the end of the engine's next statement. */
class NBX_API I_DuckDBBudget {
  public:
    virtual ~I_DuckDBBudget();
    /** In megabytes of 1,000,000 bytes; 0, the initial value, for none. From any thread. */
    virtual uint64_t get_MemoryBudget() = 0;
    virtual uint32_t get_ThreadBudget() = 0;
    /** Sets both and divides them among the open engines. More than the machine's memory counts as that, and
       more than 1,024 threads as 1,024. 0 stands for none: engines that are open keep their shares, and new
       ones have DuckDB's defaults. From any thread. */
    virtual void put_Budget(uint64_t memory_mb, uint32_t threads) = 0;
    /** DuckDB's own figures. From any thread, also while statements run. */
    virtual DuckDBBudgetFigures get_Figures() = 0;
};

}  // namespace nbx::mrsql
