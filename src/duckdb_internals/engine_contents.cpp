#include "duckdb_internals/engine_contents.h"

#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/main/database_manager.hpp>
#include <duckdb/main/extension_manager.hpp>
#include <duckdb/main/secret/secret_manager.hpp>
#include <duckdb/main/valid_checker.hpp>
#include <duckdb/storage/buffer_manager.hpp>

namespace mduckdb {

namespace {

duckdb::DatabaseInstance& InstanceOf(duckdb_database engine) {
    return *reinterpret_cast<duckdb::DatabaseWrapper*>(engine)->database->instance;
}

}  // namespace

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
