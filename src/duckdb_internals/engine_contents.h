#pragma once

#include <duckdb.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace mduckdb {

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
