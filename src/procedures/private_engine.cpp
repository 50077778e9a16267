#include "procedures/private_engine.h"

#include <stdexcept>
#include <utility>

#include "duckdb_plain/holders.h"

namespace mduckdb {

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
    duckdb_plain::ConfigHolder config;
    if (duckdb_create_config(config.Receive()) != DuckDBSuccess ||
        duckdb_set_config(config.get(), "access_mode", "READ_ONLY") != DuckDBSuccess ||
        duckdb_open_ext(path.c_str(), &engine.database_, config.get(), nullptr) != DuckDBSuccess) {
        throw std::runtime_error("Unable to open DuckDB database.");
    }
    engine.Connect("Unable to connect to DuckDB database.");
    return engine;
}

PrivateEngine PrivateEngine::Open(const std::string& path) {
    return path.empty() ? OpenInMemory() : OpenFile(path);
}

PrivateEngine::PrivateEngine(PrivateEngine&& other) noexcept
    : database_(std::exchange(other.database_, nullptr)),
      connection_(std::exchange(other.connection_, nullptr)) {}

PrivateEngine::~PrivateEngine() {
    duckdb_disconnect(&connection_);
    duckdb_close(&database_);
}

void PrivateEngine::Connect(const char* failure_text) {
    if (duckdb_connect(database_, &connection_) != DuckDBSuccess) {
        throw std::runtime_error(failure_text);
    }
}

duckdb_result PrivateEngine::Query(const std::string& sql) {
    duckdb_plain::ResultHolder result;
    if (duckdb_query(connection_, sql.c_str(), result.Receive()) != DuckDBSuccess) {
        const char* error = duckdb_result_error(result.get());
        throw std::runtime_error(error != nullptr ? error : "DuckDB query failed.");
    }
    return result.Detach();
}

}  // namespace mduckdb
