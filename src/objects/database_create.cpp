#include "backup/part_folder.h"
#include "base/errors.h"
#include "base/open_duckdb.h"
#include "base/text.h"
#include "duckdb_internals/failures.h"
#include "engines/configuration.h"
#include "engines/handle_registry.h"
#include "engines/session.h"
#include "engines/spill_path.h"
#include "objects/database.h"
#include "objects/idle_engine_lock.h"

namespace mduckdb {

namespace {

/** A private in-memory engine with a connection, both closed at the end of the scope. */
class AuxiliaryEngine : nbx::noncopyable {
  public:
    explicit AuxiliaryEngine(duckdb_config config) {
        if (OpenDuckDB(nullptr, &engine_, config, error_.Receive()) != DuckDBSuccess) {
            engine_ = nullptr;
        } else if (duckdb_connect(engine_, &connection_) != DuckDBSuccess) {
            connection_ = nullptr;
        }
    }
    ~AuxiliaryEngine() {
        if (connection_ != nullptr) {
            duckdb_disconnect(&connection_);
        }
        if (engine_ != nullptr) {
            duckdb_close(&engine_);
        }
    }
    bool Run(const std::string& sql, std::string& error) {
        if (connection_ == nullptr) {
            error = engine_ != nullptr ? "Failed to create DuckDB connection"
                                       : TextOr(error_.get(), "Unknown DuckDB database open error");
            return false;
        }
        ResultHolder result;
        if (duckdb_query(connection_, sql.c_str(), result.Receive()) != DuckDBSuccess) {
            error = TextOr(duckdb_result_error(result.get()), "Unknown DuckDB database open error");
            return false;
        }
        return true;
    }

  private:
    duckdb_database engine_ = nullptr;
    duckdb_connection connection_ = nullptr;
    TextHolder error_;
};

}  // namespace

void DuckDBDatabase::Create() {
    const IdleEngineLockScope lock(export_gate_, *link_);
    CloseToReopen();
    std::string error;
    Session session;
    FileTurn turn = TakeTurn(true);
    // Other objects on the same path share their engine with this one; files that others use are refused.
    const bool is_shared =
        turn.get_UserCount() > 0 && HandleRegistry::Get().get_UserCount(location_->get_PathText()) > 0;
    if (turn.get_Exists() && !is_shared) {
        // What no file can be created with must not cost the old one.
        TryCreation(turn.get_Look().path);
        DropLocked(turn);
    }
    try {
        CreateSession(session, turn, error);
        if (error.empty()) {
            Adopt(session);
        }
    } catch (const std::exception& caught) {
        error = TextOr(caught.what(), "Unknown DuckDB database creation error");
    } catch (...) {
        error = "Unknown DuckDB database creation error";
    }
    if (!error.empty()) {
        ThrowDuckDBError(link_->get_ErrorPath(), FailureOf(error.c_str(), ""));
    }
}

void DuckDBDatabase::CreateSession(Session& session, FileTurn& turn, std::string& error) {
    if (!session.Join(turn)) {
        session.Own(CreateEngine(turn, error));
    }
    if (error.empty() && !session.Connect()) {
        error = "Failed to create DuckDB connection";
    }
}

void DuckDBDatabase::Configure(Configuration& configuration) const {
    configuration.SetAccessMode("READ_WRITE");
    if (are_options_given_) {
        configuration.ApplyOptions(options_);
    }
    SeparateSpill(configuration, ToPath(path_));
}

void DuckDBDatabase::TryCreation(const std::string& file) const {
    std::string error;
    try {
        Configuration configuration;
        Configure(configuration);
        error = configuration.get_Error();
        if (error.empty() && HasFormat()) {
            const PartFolder folder(file);
            CreateFormattedFile(folder / file.substr(file.rfind('/') + 1), configuration.get(), error);
        }
    } catch (const std::exception& caught) {
        error = TextOr(caught.what(), "Unknown DuckDB database creation error");
    }
    if (!error.empty()) {
        ThrowDuckDBError(link_->get_ErrorPath(), FailureOf(error.c_str(), ""));
    }
}

SharedEngine DuckDBDatabase::CreateEngine(FileTurn& turn, std::string& error) {
    Configuration configuration;
    Configure(configuration);
    error = configuration.get_Error().empty() ? turn.get_Refusal(Engine::Access::writing)
                                              : configuration.get_Error();
    if (!error.empty() || (HasFormat() && !CreateFormattedFile(ToPath(path_), configuration.get(), error))) {
        return nullptr;
    }
    SharedEngine engine = turn.OpenWriter(ToPath(path_), configuration, error);
    if (!engine) {
        error = TextOr(error.c_str(), "Unknown DuckDB database open error");
    }
    return engine;
}

bool DuckDBDatabase::CreateFormattedFile(const std::string& path, duckdb_config config,
                                         std::string& error) const {
    std::string sql = "ATTACH " + QuoteLiteral(path) + " ( READ_WRITE";
    if (!storage_version_.isEmpty()) {
        sql += ", STORAGE_VERSION '" + ToUtf8(storage_version_) + "'";
    }
    if (block_size_ != 0) {
        sql += ", BLOCK_SIZE " + std::to_string(block_size_);
    }
    return AuxiliaryEngine(config).Run(sql + " );", error);
}

}  // namespace mduckdb
