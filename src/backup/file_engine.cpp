#include "backup/file_engine.h"

#include "base/holders.h"
#include "base/open_duckdb.h"
#include "duckdb_internals/engine_settings.h"

namespace mduckdb {

FileEngine::FileEngine(const std::string& file, Access access, const std::string& memory_limit,
                       const std::string& spill_folder) {
    ConfigHolder config;
    if (duckdb_create_config(config.Receive()) != DuckDBSuccess || !WriteEngineSettings(config.get())) {
        throw BackupError("Failed to create DuckDB config");
    }
    duckdb_set_config(config.get(), "access_mode", access == Access::reading ? "READ_ONLY" : "READ_WRITE");
    duckdb_set_config(config.get(), "temp_directory", spill_folder.c_str());
    // One thread, so that the other processors are left to the host.
    duckdb_set_config(config.get(), "threads", "1");
    if (!memory_limit.empty()) {
        duckdb_set_config(config.get(), "max_memory", memory_limit.c_str());
    }
    TextHolder error;
    if (OpenDuckDB(file.c_str(), &handle_, config.get(), error.Receive()) != DuckDBSuccess) {
        handle_ = nullptr;
        throw BackupError(MessageOf(error.get()));
    }
}

}  // namespace mduckdb
