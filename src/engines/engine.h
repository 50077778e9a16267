#pragma once

#include <duckdb.h>

#include <memory>
#include <string>

#include "engines/configuration.h"
#include "engines/engine_files.h"

namespace mduckdb {

/** An open DuckDB engine and what must be known to give it up. The record never closes the engine. */
struct Engine {
    using Access = EngineFiles::Access;

    duckdb_database handle = nullptr;
    /** The file as UTF-8; empty when the engine has none. */
    std::string file;
    Access access = Access::writing;
    /** As `Configuration::get_Text`. */
    std::string configuration;
};

/** An engine, shared by its users and the registry. */
using SharedEngine = std::shared_ptr<Engine>;

/** Opens a file (or what `engine.file` being empty and `path` name) with the configuration. On failure
    gives DuckDB's text or the fallback text, and the engine holds nothing, no lock either. */
bool OpenForWriting(Engine& engine, const std::string& path, const Configuration& configuration,
                    std::string& error);
/** The same for reading; `may_reuse` allows an idle reading engine instead of a new one. */
bool OpenForReading(Engine& engine, const std::string& path, const Configuration& configuration,
                    bool may_reuse, std::string& error);
/** Marks an engine that an internal error has ended; others may still refer to it. */
void RetireEngine(Engine& engine) noexcept;
/** Closes the engine, or leaves it to be closed with the last one on its file. Once. */
void GiveUpEngine(Engine& engine) noexcept;

}  // namespace mduckdb
