#include "duckdb_internals/engine_figures.h"

#include <algorithm>
#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/main/database_manager.hpp>
#include <duckdb/main/extension_manager.hpp>
#include <duckdb/main/secret/secret_manager.hpp>
#include <duckdb/main/valid_checker.hpp>
#include <duckdb/parallel/task_scheduler.hpp>
#include <duckdb/storage/buffer_manager.hpp>

namespace mduckdb {

namespace {

/** The setting `external_threads`, which nothing here changes. */
constexpr duckdb::idx_t kExternalThreads = 1;

duckdb::DatabaseInstance& InstanceOf(duckdb_database engine) {
    return *reinterpret_cast<duckdb::DatabaseWrapper*>(engine)->database->instance;
}

}  // namespace

EngineFigures ReadEngineFigures(duckdb_database engine) noexcept {
    try {
        duckdb::DatabaseInstance& instance = InstanceOf(engine);
        // These calls only read counters.
        const duckdb::BufferManager& memory = instance.GetBufferManager();
        return {memory.GetMaxMemory(), memory.GetUsedMemory(),
                static_cast<uint32_t>(instance.GetScheduler().NumberOfThreads())};
    } catch (const std::exception&) {  // Without a part that it should have: an internal error has ended it.
        return {0, 0, 0};
    }
}

void SetEngineLimits(duckdb_database engine, uint64_t memory, uint32_t threads) noexcept {
    try {
        duckdb::DatabaseInstance& instance = InstanceOf(engine);
        duckdb::DBConfigOptions& options = instance.config.options;
        duckdb::BufferManager& buffers = instance.GetBufferManager();
        const duckdb::idx_t limit = std::max<duckdb::idx_t>(memory, buffers.GetUsedMemory());
        if (memory > 0 && limit != buffers.GetMaxMemory()) {
            buffers.SetMemoryLimit(limit);
            options.maximum_memory = limit;
        }
        if (threads > 0 && threads != options.maximum_threads) {
            instance.GetScheduler().SetThreads(threads, std::min<duckdb::idx_t>(threads, kExternalThreads));
            options.maximum_threads = threads;
        }
    } catch (const std::exception&) {  // The engine took more in this moment; the next division tries again.
    }
}

EngineContents ReadEngineContents(duckdb_database engine) noexcept {
    try {
        duckdb::DatabaseInstance& instance = InstanceOf(engine);
        return {!duckdb::ValidChecker::IsInvalidated(instance),
                duckdb::ExtensionManager::Get(instance).GetExtensions().size(),
                duckdb::DatabaseManager::Get(instance).GetDatabases().size(),
                instance.GetBufferManager().GetUsedMemory()};
    } catch (const std::exception&) {  // No memory, or an engine without one of its parts.
        return {};
    }
}

EngineFolders ReadEngineFolders(duckdb_database engine) {
    duckdb::DatabaseInstance& instance = InstanceOf(engine);
    return {duckdb::SecretManager::Get(instance).PersistentSecretPath(),
            instance.GetBufferManager().GetTemporaryDirectory()};
}

}  // namespace mduckdb
