#include "engines/memory_engine.h"

#include <unistd.h>

#include <exception>
#include <utility>

namespace mduckdb {

MemoryEngine::MemoryEngine(const SharedEngine& engine, EngineTerms terms, uint64_t round)
    : MemoryEngine(engine, std::move(terms), round, ReadEngineFolders(engine->handle)) {}

MemoryEngine::MemoryEngine(const SharedEngine& engine, EngineTerms terms, uint64_t round,
                           const EngineFolders& folders)
    : terms_(std::move(terms)),
      engine_(engine),
      round_(round),
      temporary_folder_(folders.temporary),
      surroundings_(folders.secrets),
      contents_(ReadEngineContents(engine_->handle)) {}

bool MemoryEngine::IsAsOpened() const noexcept {
    // DuckDB creates the folder when it spills for the first time, and removes it when the engine closes.
    const bool has_spilled = access(temporary_folder_.c_str(), F_OK) == 0;
    return !has_spilled && contents_.works && ReadEngineContents(engine_->handle) == contents_;
}

bool MemoryEngine::IsUpToDate() const noexcept {
    try {
        return surroundings_.AreUnchanged();
    } catch (const std::exception&) {  // Unknown for lack of memory.
        return false;
    }
}

}  // namespace mduckdb
