// Opens a database file with DuckDB alone and keeps it open until its input ends:
//   duckdb_peer read|write FILE [SQL]
// With SQL, runs it first. Prints "ok", or DuckDB's error text as one line.

#include <duckdb.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

/** "ok", or the error. */
std::string Run(duckdb_database engine, const char* sql) {
    duckdb_connection connection = nullptr;
    duckdb_result result{};
    duckdb_connect(engine, &connection);
    const bool is_run = duckdb_query(connection, sql, &result) == DuckDBSuccess;
    std::string outcome = is_run ? "ok" : duckdb_result_error(&result);
    duckdb_destroy_result(&result);
    duckdb_disconnect(&connection);
    return outcome;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 && argc != 4) {
        std::fputs("usage: duckdb_peer read|write FILE [SQL]\n", stderr);
        return 2;
    }
    duckdb_config config = nullptr;
    duckdb_create_config(&config);
    duckdb_set_config(config, "access_mode", std::strcmp(argv[1], "write") == 0 ? "READ_WRITE" : "READ_ONLY");
    duckdb_database engine = nullptr;
    char* error = nullptr;
    const bool is_open = duckdb_open_ext(argv[2], &engine, config, &error) == DuckDBSuccess;
    std::string outcome = is_open ? "ok" : error;
    if (is_open && argc == 4) {
        outcome = Run(engine, argv[3]);
    }
    for (char& c : outcome) {
        c = c == '\n' ? ' ' : c;
    }
    std::printf("%s\n", outcome.c_str());
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    duckdb_free(error);
    duckdb_close(&engine);
    duckdb_destroy_config(&config);
    return is_open ? 0 : 1;
}
