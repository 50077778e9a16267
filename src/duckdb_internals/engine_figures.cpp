#include "duckdb_internals/engine_figures.h"

#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/parallel/task_scheduler.hpp>
#include <duckdb/storage/buffer_manager.hpp>

namespace mduckdb {

EngineFigures ReadEngineFigures(duckdb_database engine) noexcept {
    duckdb::DatabaseInstance& instance =
        *reinterpret_cast<duckdb::DatabaseWrapper*>(engine)->database->instance;
    // These calls only read counters.
    const duckdb::BufferManager& memory = instance.GetBufferManager();
    return {memory.GetMaxMemory(), memory.GetUsedMemory(),
            static_cast<uint32_t>(instance.GetScheduler().NumberOfThreads())};
}

}  // namespace mduckdb
