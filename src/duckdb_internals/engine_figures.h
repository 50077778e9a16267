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

}  // namespace mduckdb
