#include "bare_duckdb.h"

#include "measure.h"

namespace bench {

BareDuckDB::BareDuckDB(const std::string& path, Access access, unsigned threads,
                       const std::string& storage_version) {
    duckdb_config config = nullptr;
    duckdb_create_config(&config);
    if (threads != 0) {
        duckdb_set_config(config, "threads", std::to_string(threads).c_str());
    }
    if (!path.empty() && access == Access::reading) {
        duckdb_set_config(config, "access_mode", "READ_ONLY");
    }
    if (!storage_version.empty()) {
        duckdb_set_config(config, "storage_compatibility_version", storage_version.c_str());
    }
    char* error = nullptr;
    const char* name = path.empty() ? nullptr : path.c_str();
    if (duckdb_open_ext(name, &database_, config, &error) != DuckDBSuccess) {
        Die(error);
    }
    duckdb_destroy_config(&config);
    if (duckdb_connect(database_, &connection_) != DuckDBSuccess) {
        Die("cannot connect");
    }
}

BareDuckDB::~BareDuckDB() {
    duckdb_disconnect(&connection_);
    duckdb_close(&database_);
}

void BareDuckDB::Run(const std::string& sql) const {
    duckdb_result result;
    if (duckdb_query(connection_, sql.c_str(), &result) != DuckDBSuccess) {
        Die(std::string(duckdb_result_error(&result)) + " in: " + sql);
    }
    duckdb_destroy_result(&result);
}

int64_t BareDuckDB::GetNumber(const std::string& sql) const {
    duckdb_result result;
    if (duckdb_query(connection_, sql.c_str(), &result) != DuckDBSuccess) {
        Die(std::string(duckdb_result_error(&result)) + " in: " + sql);
    }
    duckdb_data_chunk chunk = duckdb_fetch_chunk(result);
    const auto* numbers =
        static_cast<const int64_t*>(duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk, 0)));
    const int64_t number = numbers[0];
    duckdb_destroy_data_chunk(&chunk);
    duckdb_destroy_result(&result);
    return number;
}

duckdb_prepared_statement Prepare(duckdb_connection connection, const std::string& sql) {
    duckdb_prepared_statement prepared = nullptr;
    if (duckdb_prepare(connection, sql.c_str(), &prepared) != DuckDBSuccess) {
        Die(duckdb_prepare_error(prepared));
    }
    return prepared;
}

void ExecuteAndDrop(duckdb_prepared_statement prepared) {
    duckdb_result result;
    if (duckdb_execute_prepared(prepared, &result) != DuckDBSuccess) {
        Die(duckdb_result_error(&result));
    }
    duckdb_destroy_result(&result);
}

}  // namespace bench
