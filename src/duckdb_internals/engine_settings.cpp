#include "duckdb_internals/engine_settings.h"

#include <algorithm>

#include "duckdb_internals/version_settings.h"

namespace mduckdb {

bool WriteEngineSettings(duckdb_config config) noexcept {
    return std::all_of(version::kEngineSettings.begin(), version::kEngineSettings.end(),
                       [config](const version::EngineSetting& setting) {
                           return duckdb_set_config(config, setting.key, setting.value) == DuckDBSuccess;
                       });
}

}  // namespace mduckdb
