#pragma once

#include <duckdb.h>

#include <cstdint>

namespace mduckdb {

/** The limits and the use of an engine, in bytes and threads. */
struct EngineFigures {
    uint64_t memory_limit;
    uint64_t memory_used;
    uint32_t threads;
};

/** The figures that `duckdb_memory()` and the settings `memory_limit` and `threads` show, without a query: on
   any thread and during any query, as long as the engine is not being closed. */
EngineFigures ReadEngineFigures(duckdb_database engine) noexcept;

/** Sets what the engine may take; 0 leaves it as it is. An engine that takes more memory than that keeps what
   it takes, so that nothing is written to make room. Another number of threads takes effect at the end of the
    engine's next statement. From any thread, under the same condition. */
void SetEngineLimits(duckdb_database engine, uint64_t memory, uint32_t threads) noexcept;

}  // namespace mduckdb
