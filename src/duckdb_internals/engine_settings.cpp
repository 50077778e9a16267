#include "duckdb_internals/engine_settings.h"

#include <algorithm>
#include <duckdb/common/file_system.hpp>
#include <duckdb/main/client_context.hpp>
#include <duckdb/main/config.hpp>
#include <duckdb/main/connection.hpp>
#include <duckdb/planner/extension_callback.hpp>
#include <exception>
#include <string>

#include "base/server_waits.h"
#include "duckdb_internals/version_settings.h"

namespace mduckdb {
namespace {

/** Learns that an engine has got an HTTP client, as soon as a statement that needs one has loaded it. */
class ExtensionWatch : public duckdb::ExtensionCallback {
  public:
    void OnExtensionLoaded(duckdb::DatabaseInstance& /*engine*/, const std::string& name) override {
        if (name == "httpfs") {
            ServerWaits::NoteClient();
        }
    }
};

bool WatchExtensions(duckdb_config config) noexcept {
    try {
        // One for all engines. Never destroyed, as engines may close while the process exits.
        static const auto* const watch =
            new duckdb::shared_ptr<duckdb::ExtensionCallback>(duckdb::make_shared_ptr<ExtensionWatch>());
        duckdb::ExtensionCallback::Register(*reinterpret_cast<duckdb::DBConfig*>(config), *watch);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

/** Handles no file. DuckDB asks it about every path before it asks its own file system. */
class ParentsInPaths final : public duckdb::FileSystem {
  public:
    bool CanHandleFile(const std::string& path) override {
        if (("/" + path + "/").find("/../") != path.npos) {
            throw duckdb::PermissionException("Cannot access file " + ('"' + path + '"') +
                                              " - file system operations are disabled by configuration");
        }
        return false;
    }
    std::string GetName() const override { return "mduckdb_parents_in_paths"; }
};

}  // namespace

bool WriteEngineSettings(duckdb_config config) noexcept {
    return WatchExtensions(config) &&
           std::all_of(version::kEngineSettings.begin(), version::kEngineSettings.end(),
                       [config](const version::EngineSetting& setting) {
                           return duckdb_set_config(config, setting.key, setting.value) == DuckDBSuccess;
                       });
}

bool RefuseParentsInPaths(duckdb_connection connection) noexcept {
    if constexpr (version::kFollowsLinksInPaths) {
        return true;
    }
    try {
        duckdb::ClientContext& context = *reinterpret_cast<duckdb::Connection*>(connection)->context;
        duckdb::FileSystem::GetFileSystem(*context.db).RegisterSubSystem(duckdb::make_uniq<ParentsInPaths>());
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace mduckdb
