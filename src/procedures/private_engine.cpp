#include "procedures/private_engine.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "duckdb_internals/engine_settings.h"
#include "duckdb_internals/task_threads.h"
#include "engines/spill_path.h"
#include "procedures/allowed_files.h"
#include "procedures/sql_text.h"

namespace mduckdb {
namespace {

constexpr const char* kMemory = ":memory:";
constexpr const char* kOpenFailed = "Unable to open DuckDB database.";
constexpr const char* kConnectFailed = "Unable to connect to DuckDB database.";
/** Keeps idle engines apart from those that database objects configured. */
constexpr const char* kConfigurationMark = "procedure";

/** DuckDB's name for the catalog of a file. */
std::string CatalogName(const std::string& path) {
    std::string name = path.substr(path.rfind('/') + 1);
    name = name.substr(0, name.find('.'));
    return name == "main" || name == "temp" || name == "system" ? name + "_db" : name;
}

bool TakePrefix(std::string_view& text, std::string_view prefix) {
    const bool has_prefix =
        text.size() >= prefix.size() && strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
    if (has_prefix) {
        text.remove_prefix(prefix.size());
    }
    return has_prefix;
}

}  // namespace

std::string DatabaseFilePath(const std::string& uri) {
    // DuckDB would cut a path at a NUL character and open another file.
    if (uri.find('\0') != uri.npos) {
        return {};
    }
    std::string_view path = uri;
    TakePrefix(path, "duckdb:");
    const char* home = std::getenv("HOME");
    if (path.starts_with('~') && home != nullptr) {
        return home + std::string(path.substr(1));
    }
    // file:/a, file:///a and file://localhost/a are the path /a
    constexpr std::array<std::string_view, 3> kSchemes{"file://localhost/", "file:///", "file:/"};
    for (const std::string_view scheme : kSchemes) {
        if (path.starts_with(scheme)) {
            path.remove_prefix(scheme.size() - 1);
            break;
        }
    }
    return std::string(path);
}

void PrivateEngine::Configure(Configuration& configuration, const std::string& spill_beginning) const {
    if (limits_->memory_mb > 0) {
        configuration.Set("max_memory", std::to_string(limits_->memory_mb) + "MB");
    }
    if (limits_->threads > 0) {
        configuration.Set("threads", std::to_string(limits_->threads));
    }
    // An engine serves several calls, and DuckDB's cache reads old content of a file that was rewritten
    // within the second. On a network, one request fetches a small file whole only into this cache.
    configuration.Set("enable_external_file_cache", is_remote_ ? "true" : "false");
    configuration.Mark(std::to_string(limits_->temp_directory_mb));
    if (limits_->spill) {
        configuration.Mark(limits_->spill->get_Path());
    }
    PutOwnSpill(configuration, limits_->spill ? limits_->spill->get_Path() + "/" : spill_beginning);
    if (limits_->get_IsConfined()) {
        // Opening a file that needs an extension must not fetch it either.
        configuration.Set("autoinstall_known_extensions", "false");
        configuration.Set("autoload_known_extensions", "false");
        configuration.Set("allow_persistent_secrets", "false");
        for (const std::string& folder : limits_->folders) {
            configuration.Mark(folder);
        }
    }
}

void PrivateEngine::OpenMemory() {
    if (!is_remote_) {
        memory_engine_ = IdleEngines::Take(limits_, use_);
    }
    if (memory_engine_) {
        engine_ = memory_engine_->get_Engine();
    } else {
        OpenNewMemory();
    }
}

void PrivateEngine::OpenNewMemory() {
    const uint64_t round = IdleEngines::get_Round();
    // A name of its own, so that nobody shares the engine.
    FileTurn turn = FileTurn::OfName("call " + std::to_string(call_->get_Number()));
    Configuration configuration;
    Configure(configuration, ".tmp-");
    std::string error;
    engine_ = turn.OpenWriter(kMemory, configuration, error);
    if (engine_) {
        LimitOpened(turn);
        if (!is_remote_) {
            memory_engine_.emplace(engine_, limits_, round);
        }
        for (const Setting& setting : HttpSettings()) {
            // Where the extension that knows these settings is missing, the call itself fails.
            Run(("SET " + std::string(setting.name) + " = " + QuoteLiteral(setting.value)).c_str());
        }
    }
}

PrivateEngine PrivateEngine::OpenInMemory(const char* procedure_name, const std::string& uri) {
    PrivateEngine engine(procedure_name, uri);
    engine.OpenMemory();
    if (!engine.engine_) {
        throw std::runtime_error("Unable to open in-memory DuckDB database.");
    }
    engine.Connect("Unable to connect to in-memory DuckDB database.");
    return engine;
}

PrivateEngine PrivateEngine::OpenFile(const char* procedure_name, const std::string& path) {
    const std::string file = DatabaseFilePath(path);
    PrivateEngine engine(procedure_name, file);
    if (file == kMemory) {
        engine.OpenMemory();
    } else if (!file.empty()) {
        engine.UseFile(file);
    }
    if (!engine.engine_) {
        engine.ThrowOpenFailed(file);
    }
    engine.Connect(kConnectFailed);
    return engine;
}

void PrivateEngine::LimitOpened(FileTurn& turn) {
    if (duckdb_connect(engine_->handle, &connection_) == DuckDBSuccess && RunLimits()) {
        return;
    }
    // Nobody else may take the engine for one that is limited.
    duckdb_disconnect(&connection_);
    turn.Retire(*engine_);
    throw std::runtime_error("Unable to limit a DuckDB database.");
}

bool PrivateEngine::RunLimits() {
    if (limits_->temp_directory_mb > 0) {
        // DuckDB keeps to this one only if it is set after the engine was opened.
        const std::string size = std::to_string(limits_->temp_directory_mb) + "MB";
        if (!Run(("SET max_temp_directory_size = '" + size + "'").c_str())) {
            return false;
        }
    }
    if (!limits_->get_IsConfined()) {
        return true;
    }
    std::vector<std::string> folders;
    for (const std::string& folder : limits_->folders) {
        folders.push_back(QuoteLiteral(folder));
    }
    // DuckDB accepts them in this order only.
    return RefuseParentsInPaths(connection_) &&
           Run(("SET allowed_directories = [" + JoinList(folders) + "]").c_str()) &&
           Run("SET enable_external_access = false") && Run("SET lock_configuration = true");
}

std::vector<PrivateEngine::Setting> PrivateEngine::HttpSettings() const {
    using std::chrono::seconds;
    if (!is_remote_ || !time_.get_IsLimited() || limits_->get_IsConfined()) {
        return {};
    }
    constexpr seconds kDefault{30};
    const seconds timeout = std::min(std::chrono::ceil<seconds>(limits_->time), kDefault);
    return {{"http_timeout", std::to_string(timeout.count())}, {"http_retries", "1"}};
}

void PrivateEngine::UseFile(const std::string& file) {
    catalog_ = CatalogName(file);
    const bool is_confined = limits_->get_IsConfined();
    const std::string path = is_confined ? RequireAllowed(file, limits_->folders) : ResolveParents(file);
    if (path.empty()) {
        throw std::runtime_error(kOpenFailed);
    }
    FileTurn turn(EngineFiles::Get(), path);
    if (is_confined && turn.HasWriter()) {
        throw std::runtime_error("Cannot read '" + file +
                                 "' in limited folders: this process has it open for writing.");
    }
    if (!JoinWriter(turn)) {
        OpenReader(turn, path);
    }
}

void PrivateEngine::OpenReader(FileTurn& turn, const std::string& file) {
    Configuration configuration;
    configuration.SetAccessMode("READ_ONLY");
    configuration.Mark(kConfigurationMark);
    // What does not fit into memory is written to a disk of this machine.
    Configure(configuration, is_remote_ ? ".tmp-" : file + ".tmp-");
    for (const Setting& setting : HttpSettings()) {
        configuration.Set(setting.name, setting.value);
    }
    const bool has_own_pauses = is_remote_ && !limits_->get_IsConfined();
    if (has_own_pauses) {
        // DuckDB opens the file three times and pauses between its attempts, and nothing ends a pause. They
        // grow fourfold otherwise, and a call that is cut would go through all of them.
        configuration.Set("http_retry_backoff", "1");
    }
    engine_ = turn.TakeIdleReader(configuration);
    const bool is_idle = engine_ != nullptr;
    std::string error;
    if (!is_idle) {
        OpenNewReader(turn, file, configuration, error);
    }
    if (!engine_) {
        call_->ThrowIfCut();
        const std::string refusal = turn.get_Refusal(Engine::Access::reading);
        if (!refusal.empty()) {
            throw std::runtime_error(refusal);
        }
        open_error_ = error;
        return;
    }
    if (!is_idle) {
        LimitOpened(turn);
        if (has_own_pauses) {
            Run("RESET GLOBAL http_retry_backoff");
        }
    }
}

void PrivateEngine::ThrowOpenFailed(const std::string& file) {
    if (!is_remote_) {
        throw std::runtime_error(kOpenFailed);
    }
    // For DuckDB, a database that the server refuses does not exist. Reading the file's size says why.
    OpenMemory();
    if (engine_) {
        Connect(kConnectFailed);
        try {
            RunInTime([&] { return Query("SELECT size FROM read_blob(" + QuoteLiteral(file) + ")"); });
        } catch (const std::exception& error) {
            if (time_.IsOver()) {
                throw;
            }
            call_->ThrowIfCut();
            open_error_ = error.what();
        }
    }
    throw std::runtime_error(kOpenFailed + ("\n" + open_error_));
}

void PrivateEngine::OpenNewReader(FileTurn& turn, const std::string& file, Configuration& configuration,
                                  std::string& error) {
    const auto open = [&] {
        engine_ = turn.OpenReader(file, configuration, error);
        return true;
    };
    if (!is_remote_) {
        open();
        return;
    }
    try {
        // DuckDB already waits for the server.
        RunInTime(open);
    } catch (const std::exception&) {
        if (engine_) {
            turn.Retire(*engine_);
        }
        throw;
    }
}

bool PrivateEngine::JoinWriter(FileTurn& turn) {
    while ((engine_ = turn.JoinWriter()) != nullptr) {
        // The engine's users may have enabled JSON errors for all connections; this one reports plain texts.
        // If the configuration is locked, the setting stays as it is.
        is_shared_ = duckdb_connect(engine_->handle, &connection_) == DuckDBSuccess &&
                     (Run("SET SESSION errors_as_json = false"), Run("BEGIN TRANSACTION READ ONLY"));
        if (is_shared_) {
            return true;
        }
        duckdb_disconnect(&connection_);
        if (IsEngineAlive(engine_->handle)) {
            throw std::runtime_error(kConnectFailed);
        }
        turn.Retire(*engine_);
    }
    return false;
}

PrivateEngine::PrivateEngine(PrivateEngine&& other) noexcept
    : limits_(std::move(other.limits_)),
      time_(other.time_),
      is_remote_(other.is_remote_),
      call_(std::move(other.call_)),
      engine_(std::move(other.engine_)),
      use_(std::move(other.use_)),
      memory_engine_(std::exchange(other.memory_engine_, std::nullopt)),
      has_finished_(other.has_finished_),
      connection_(std::exchange(other.connection_, nullptr)),
      is_shared_(std::exchange(other.is_shared_, false)),
      catalog_(std::move(other.catalog_)) {}

PrivateEngine::~PrivateEngine() {
    if (call_) {
        call_->Disconnect();
    }
    if (engine_ && !engine_->IsInherited()) {
        duckdb_disconnect(&connection_);
    }
    engine_.reset();
    if (memory_engine_ && has_finished_) {
        IdleEngines::Keep(*std::exchange(memory_engine_, std::nullopt));
    }
}

void PrivateEngine::Connect(const char* failure_text) {
    // A shared engine was connected to when it was looked at, a new one when it was limited.
    if (connection_ == nullptr && duckdb_connect(engine_->handle, &connection_) != DuckDBSuccess) {
        throw std::runtime_error(failure_text);
    }
    if (call_->get_Waits()) {
        ReportTaskThreads(connection_, call_->get_Waits());
    }
    call_->Connect(connection_, engine_->get_Number());
}

void PrivateEngine::Cut(void* engine) noexcept {
    const auto& self = *static_cast<PrivateEngine*>(engine);
    duckdb_interrupt(self.connection_);
    if (self.call_->get_Waits()) {
        self.call_->get_Waits()->EndOnce();
    }
}

bool PrivateEngine::Run(const char* sql) noexcept {
    return duckdb_query(connection_, sql, nullptr) == DuckDBSuccess;
}

void PrivateEngine::FinishReading() noexcept {
    has_finished_ = true;
    use_.Finish();
    if (std::exchange(is_shared_, false)) {
        Run("ROLLBACK");
    }
}

void PrivateEngine::QualifyName(std::vector<std::string>& parts) {
    const bool has_other_name = is_shared_ || limits_->get_IsConfined();
    if (!has_other_name || parts.size() < 2 || strcasecmp(parts.front().c_str(), catalog_.c_str()) != 0) {
        return;
    }
    ResultHolder result = Query(
        "SELECT database_name FROM duckdb_databases() WHERE NOT internal ORDER BY database_oid LIMIT 1");
    const TextHolder name(duckdb_value_varchar(result.get(), 0, 0));
    if (name) {
        parts.front() = name.get();
    }
}

ResultHolder PrivateEngine::Query(const std::string& sql) {
    ResultHolder result;
    if (duckdb_query(connection_, sql.c_str(), result.Receive()) != DuckDBSuccess) {
        call_->ThrowIfCut();
        throw QueryError(*result.get());
    }
    return result;
}

std::runtime_error QueryError(duckdb_result& result) {
    const char* text = duckdb_result_error(&result);
    return std::runtime_error(text != nullptr ? text : "DuckDB query failed.");
}

}  // namespace mduckdb
