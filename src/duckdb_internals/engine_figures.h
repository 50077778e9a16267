#pragma once

#include <duckdb.h>

#include <cstddef>
#include <cstdint>
#include <string>

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

/** What queries that cannot change settings may leave behind in an engine without tables. */
struct EngineContents {
    /** False after an internal error, which ends the engine. */
    bool works = false;
    std::size_t extensions = 0;
    std::size_t databases = 0;
    /** What caches and unreleased rows take. */
    uint64_t memory = 0;

    friend bool operator==(const EngineContents&, const EngineContents&) = default;
};

/** While nothing runs on the engine. */
EngineContents ReadEngineContents(duckdb_database engine) noexcept;

/** Where an engine reads its stored secrets, and where it spills rows. */
struct EngineFolders {
    std::string secrets;
    std::string temporary;
};

/** Throws DuckDB's exceptions and `std::bad_alloc`. */
EngineFolders ReadEngineFolders(duckdb_database engine);

}  // namespace mduckdb
