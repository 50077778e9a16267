#include "handle_balance.h"

#include <duckdb.h>

#include <atomic>

namespace {

std::atomic<long> g_engines = 0;
std::atomic<long> g_connections = 0;
std::atomic<long> g_opened = 0;

void Add(std::atomic<long>& count, long change) {
    count.fetch_add(change, std::memory_order_relaxed);
}

}  // namespace

namespace handle_balance {

long CountEngines() {
    return g_engines.load(std::memory_order_relaxed);
}

long CountConnections() {
    return g_connections.load(std::memory_order_relaxed);
}

long CountOpened() {
    return g_opened.load(std::memory_order_relaxed);
}

}  // namespace handle_balance

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
duckdb_state __real_duckdb_open_ext(const char*, duckdb_database*, duckdb_config, char**);
duckdb_state __real_duckdb_connect(duckdb_database, duckdb_connection*);
void __real_duckdb_close(duckdb_database*);
void __real_duckdb_disconnect(duckdb_connection*);

duckdb_state __wrap_duckdb_open_ext(const char* path, duckdb_database* engine, duckdb_config config,
                                    char** error) {
    const duckdb_state state = __real_duckdb_open_ext(path, engine, config, error);
    if (state == DuckDBSuccess) {
        Add(g_engines, 1);
        Add(g_opened, 1);
    }
    return state;
}

duckdb_state __wrap_duckdb_connect(duckdb_database engine, duckdb_connection* connection) {
    const duckdb_state state = __real_duckdb_connect(engine, connection);
    if (state == DuckDBSuccess) {
        Add(g_connections, 1);
    }
    return state;
}

void __wrap_duckdb_close(duckdb_database* engine) {
    if (engine != nullptr && *engine != nullptr) {
        Add(g_engines, -1);
    }
    __real_duckdb_close(engine);
}

void __wrap_duckdb_disconnect(duckdb_connection* connection) {
    if (connection != nullptr && *connection != nullptr) {
        Add(g_connections, -1);
    }
    __real_duckdb_disconnect(connection);
}
}
// NOLINTEND(bugprone-reserved-identifier)
