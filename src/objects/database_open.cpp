#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "engines/configuration.h"
#include "engines/handle_registry.h"
#include "engines/session.h"
#include "objects/database.h"

namespace mduckdb {

void DuckDBDatabase::Open() {
    const IdleEngineLockScope lock(export_gate_);
    CloseLocked();
    OpenLocked();
}

void DuckDBDatabase::OpenLocked() {
    if (token_.isEmpty() && !IsInMemory() && !get_ExistsLocked()) {
        ThrowError("File does not exist");
    }
    Session session;
    if (!session.JoinShared(location_->get_PathText())) {
        session.Own(OpenEngine());
    }
    if (!session.Connect()) {
        throw nbx::xException(kOpenErrorCode, "Failed to create DuckDB connection");
    }
    Adopt(session);
    is_read_only_.store(engine_->access == Engine::Access::reading);
}

SharedEngine DuckDBDatabase::OpenEngine() {
    auto engine = std::make_shared<Engine>();
    engine->file = token_.isEmpty() ? get_EngineFile() : std::string();
    const std::string path = ToUtf8(path_);
    Configuration configuration;
    configuration.ApplyCredentials(token_, user_agent_);
    if (are_options_given_) {
        configuration.ApplyOptions(options_);
    }
    std::string error;
    bool is_open = false;
    if (are_options_given_ && !options_.read_write) {
        configuration.SetAccessMode("READ_ONLY");
        is_open = OpenForReading(*engine, path, configuration, true, error);
    } else {
        configuration.SetAccessMode("READ_WRITE");
        is_open = OpenForWriting(*engine, path, configuration, error);
        if (!is_open) {
            configuration.SetAccessMode("READ_ONLY");
            // A new engine in any case: the failed one took this process's lock on the file with it.
            is_open = OpenForReading(*engine, path, configuration, false, error);
        }
    }
    if (!is_open) {
        throw nbx::xException(kOpenErrorCode,
                              TextOr(error.c_str(), "Failed to open DuckDB database").c_str());
    }
    return engine;
}

void DuckDBDatabase::Adopt(Session& session) {
    nbx::String key = location_->get_PathText();
    // The last step that can fail: from here on the registry counts a user, whom `CloseLocked` takes away.
    HandleRegistry::Get().AddUser(key, session.get_Engine());
    session.Keep();
    engine_ = session.get_Engine();
    std::swap(open_key_, key);
    link_->ReplaceConnection(session.get_Connection());
    is_open_.store(true);
}

}  // namespace mduckdb
