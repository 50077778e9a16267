#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/failures.h"
#include "engines/configuration.h"
#include "engines/handle_registry.h"
#include "engines/session.h"
#include "engines/spill_path.h"
#include "objects/database.h"
#include "objects/idle_engine_lock.h"

namespace mduckdb {

void DuckDBDatabase::Open() {
    const IdleEngineLockScope lock(export_gate_, *link_);
    CloseToReopen();
    OpenLocked();
}

void DuckDBDatabase::OpenLocked() {
    if (token_.isEmpty() && !IsInMemory() && !get_ExistsLocked()) {
        ThrowError("File does not exist");
    }
    Session session;
    FileTurn turn = TakeTurn(token_.isEmpty());
    if (!session.Join(turn)) {
        session.Own(OpenEngine(turn));
    }
    if (!session.Connect()) {
        ThrowOpenError({"Failed to create DuckDB connection", nullptr});
    }
    Adopt(session);
    is_read_only_.store(engine_->access == Engine::Access::reading);
}

FileTurn DuckDBDatabase::TakeTurn(bool is_file) const {
    return is_file && !IsInMemory() ? FileTurn(EngineFiles::Get(), ToPath(path_))
                                    : FileTurn::OfName(ToUtf8(location_->get_PathText()));
}

SharedEngine DuckDBDatabase::OpenEngine(FileTurn& turn) {
    const std::string path = ToPath(path_);
    Configuration configuration;
    configuration.ApplyCredentials(token_, user_agent_);
    if (are_options_given_) {
        configuration.ApplyOptions(options_);
    }
    SeparateSpill(configuration, path);
    std::string error;
    SharedEngine engine;
    if (are_options_given_ && !options_.read_write) {
        configuration.SetAccessMode("READ_ONLY");
        engine = turn.TakeIdleReader(configuration);
        engine = engine ? engine : turn.OpenReader(path, configuration, error);
    } else {
        configuration.SetAccessMode("READ_WRITE");
        engine = turn.OpenWriter(path, configuration, error);
        // Falls back to read-only when DuckDB refuses, but not when this process itself blocks the file.
        if (!engine && turn.get_Refusal(Engine::Access::writing).empty()) {
            configuration.SetAccessMode("READ_ONLY");
            engine = turn.OpenReader(path, configuration, error);
        }
    }
    if (!engine) {
        ThrowOpenError(FailureOf(error.c_str(), "Failed to open DuckDB database"));
    }
    return engine;
}

void DuckDBDatabase::Adopt(Session& session) {
    nbx::String key = location_->get_PathText();
    // The last step that can fail: from here on the registry counts a user, which `CloseLocked` removes.
    HandleRegistry::Get().AddUser(key);
    session.Keep();
    engine_ = session.get_Engine();
    std::swap(open_key_, key);
    link_->ReplaceConnection(session.get_Connection());
    are_options_new_ = false;
    is_open_.store(true);
    CensusEntry& census = link_->get_Census();
    census.put_Parent(engine_->get_Number());
    census.put_Flag(CensusLine::kIsReadOnly, engine_->access == Engine::Access::reading);
    census.put_Flag(CensusLine::kIsInTransaction, false);
    census.Enter();
}

}  // namespace mduckdb
