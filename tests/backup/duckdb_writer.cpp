// Commits a table into the log of a database file, and waits until it is killed: duckdb_writer FILE

#include <duckdb.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    duckdb_database engine = nullptr;
    duckdb_connection connection = nullptr;
    if (duckdb_open(argv[1], &engine) != DuckDBSuccess ||
        duckdb_connect(engine, &connection) != DuckDBSuccess ||
        duckdb_query(connection, "CREATE TABLE late AS SELECT range AS i FROM range(10)", nullptr) !=
            DuckDBSuccess) {
        std::puts("failed");
        return 1;
    }
    std::puts("committed");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    duckdb_disconnect(&connection);
    duckdb_close(&engine);
}
