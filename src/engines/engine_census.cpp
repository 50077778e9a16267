#include <algorithm>

#include "duckdb_internals/engine_figures.h"
#include "engines/engine_files.h"

namespace mduckdb {

namespace {

using nbx::OpenEngine;

/** The lock that DuckDB holds on the file. */
CensusLine::Lock LockOf(const OpenEngine& engine) {
    if (engine.handle == nullptr || std::string_view(engine.path) == ":memory:") {
        return CensusLine::kNoLock;
    }
    // Another open or close of the file in this process has changed the lock of an engine that shares the
    // file with others.
    return engine.access == OpenEngine::kWriting ? CensusLine::kExclusiveLock : CensusLine::kSharedLock;
}

uint32_t FlagsOf(const OpenEngine& engine) {
    return (engine.access == OpenEngine::kReading ? CensusLine::kIsReadOnly : 0u) |
           (engine.users == 0 ? CensusLine::kWaitsToBeClosed : 0u) |
           (engine.access == OpenEngine::kDead ? CensusLine::kIsUnusable : 0u);
}

}  // namespace

uint64_t Engine::get_Number() const noexcept {
    return record->number * 2 + (files == &EngineFiles::Nameless() ? 1 : 0);
}

void EngineFiles::List(std::vector<CensusLine>& lines) {
    const std::size_t begin = lines.size();
    files_.ListEngines(
        [](void* context, const OpenEngine& engine) {
            CensusLine& line = static_cast<std::vector<CensusLine>*>(context)->emplace_back();
            line.flags = FlagsOf(engine);
            line.lock = LockOf(engine);
            line.users = engine.users;
            line.number = engine.number * 2;
            line.name = nbx::FromUtf8(WithoutSecrets(engine.path));
            // The list's clock has the finer resolution.
            line.age_ms = static_cast<uint64_t>(std::max<int64_t>(0, NowMs() - engine.begun_ms));
            if (engine.handle == nullptr) {
                return;
            }
            if (engine.library != get_DuckDBLibrary()) {
                line.flags |= CensusLine::kIsForeign;
                return;
            }
            const EngineFigures figures = ReadEngineFigures(static_cast<duckdb_database>(engine.handle));
            line.bytes = static_cast<int64_t>(figures.memory_used);
            line.memory_limit = figures.memory_limit;
            line.threads = figures.threads;
        },
        &lines);
    // Each list has its own numbers.
    for (std::size_t i = begin; i < lines.size() && this == &Nameless(); ++i) {
        ++lines[i].number;
    }
}

}  // namespace mduckdb
