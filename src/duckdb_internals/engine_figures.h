#pragma once

#include <duckdb.h>

#include <cstdint>

namespace mduckdb {

/** What an engine may take and takes, in bytes and threads. */
struct EngineFigures {
    uint64_t memory_limit;
    uint64_t memory_used;
    uint32_t threads;
};

/** The figures that `duckdb_memory()` and the settings `memory_limit` and `threads` show, without a query:
   from any thread, whatever runs on the engine, as long as it is not being closed. */
EngineFigures ReadEngineFigures(duckdb_database engine) noexcept;

}  // namespace mduckdb
