#include "procedures/private_engine.h"

#include <strings.h>

#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "engines/engine_files.h"

namespace mduckdb {
namespace {

constexpr EngineFiles::Access kReading = EngineFiles::Access::reading;
/** Stands for the configuration below among the idle engines. */
constexpr const char* kConfiguration = "procedure";

duckdb_state OpenReadOnly(const std::string& path, duckdb_database* database) {
    ConfigHolder config;
    if (duckdb_create_config(config.Receive()) != DuckDBSuccess ||
        duckdb_set_config(config.get(), "access_mode", "READ_ONLY") != DuckDBSuccess) {
        return DuckDBError;
    }
    return duckdb_open_ext(path.c_str(), database, config.get(), nullptr);
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
    // A path with a NUL in it would be cut there, and another file opened.
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

PrivateEngine PrivateEngine::OpenInMemory() {
    PrivateEngine engine;
    if (duckdb_open(nullptr, &engine.database_) != DuckDBSuccess) {
        throw std::runtime_error("Unable to open in-memory DuckDB database.");
    }
    engine.Connect("Unable to connect to in-memory DuckDB database.");
    return engine;
}

PrivateEngine PrivateEngine::OpenFile(const std::string& path) {
    PrivateEngine engine;
    const std::string file = DatabaseFilePath(path);
    if (file == ":memory:") {
        duckdb_open(nullptr, &engine.database_);
    } else if (!file.empty()) {
        engine.OpenReading(file);
    }
    if (engine.database_ == nullptr) {
        throw std::runtime_error("Unable to open DuckDB database.");
    }
    engine.Connect("Unable to connect to DuckDB database.");
    return engine;
}

void PrivateEngine::OpenReading(const std::string& file) {
    EngineFiles& files = EngineFiles::Get();
    held_file_ = file;
    database_ = files.TakeIdleReader(file, kConfiguration);
    if (database_ == nullptr && files.TryHold(file, kReading) &&
        OpenReadOnly(file, &database_) != DuckDBSuccess) {
        files.CancelHold(file, kReading);
    }
}

PrivateEngine::PrivateEngine(PrivateEngine&& other) noexcept
    : held_file_(std::exchange(other.held_file_, {})),
      database_(std::exchange(other.database_, nullptr)),
      connection_(std::exchange(other.connection_, nullptr)) {}

PrivateEngine::~PrivateEngine() {
    duckdb_disconnect(&connection_);
    if (held_file_.empty() || database_ == nullptr) {
        duckdb_close(&database_);
    } else {
        EngineFiles::Get().GiveUp(held_file_, kReading, kConfiguration, database_);
    }
}

void PrivateEngine::Connect(const char* failure_text) {
    if (duckdb_connect(database_, &connection_) != DuckDBSuccess) {
        throw std::runtime_error(failure_text);
    }
}

ResultHolder PrivateEngine::Query(const std::string& sql) {
    ResultHolder result;
    if (duckdb_query(connection_, sql.c_str(), result.Receive()) != DuckDBSuccess) {
        throw QueryError(*result.get());
    }
    return result;
}

std::runtime_error QueryError(duckdb_result& result) {
    const char* text = duckdb_result_error(&result);
    return std::runtime_error(text != nullptr ? text : "DuckDB query failed.");
}

}  // namespace mduckdb
