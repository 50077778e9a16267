#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "duckdb_internals/engine_figures.h"
#include "engines/engine_files.h"
#include "engines/surroundings.h"

namespace mduckdb {

/** What an engine was limited to when it was opened; only the same object means the same limits. */
using EngineTerms = std::shared_ptr<const void>;

/** An engine without a file that serves one call after another. Each connects to it and disconnects; nothing
    of one call is there for the next. The last holder of the engine closes it. */
class MemoryEngine {
  public:
    /** The engine was just opened, and no query has run on it that may use a secret. `round` is from before
        that. Throws `std::bad_alloc` and DuckDB's exceptions. */
    MemoryEngine(const SharedEngine& engine, EngineTerms terms, uint64_t round);

    const SharedEngine& get_Engine() const noexcept { return engine_; }
    const EngineTerms& get_Terms() const noexcept { return terms_; }
    /** `IdleEngines::get_Round` at the time when it was opened. */
    uint64_t get_Round() const noexcept { return round_; }

    /** Whether the calls that it has served have left nothing behind. None is connected now. */
    bool IsAsOpened() const noexcept;
    /** Whether a new engine would find the same environment and the same stored secrets. */
    bool IsUpToDate() const noexcept;

  private:
    MemoryEngine(const SharedEngine& engine, EngineTerms terms, uint64_t round, const EngineFolders& folders);

    // Destroyed after the engine: the limits may own the folder in which it spills.
    EngineTerms terms_;
    SharedEngine engine_;
    uint64_t round_;
    std::string temporary_folder_;
    Surroundings surroundings_;
    EngineContents contents_;
};

}  // namespace mduckdb
