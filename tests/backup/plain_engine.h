#pragma once

#include <duckdb.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "backup/snapshot.h"
#include "backup/sql_worker.h"

namespace mduckdb {

/** A DuckDB engine on a file, with one connection, for tests of code that works on engines. */
class PlainEngine {
  public:
    explicit PlainEngine(const std::string& file, const char* access_mode = "READ_WRITE") {
        duckdb_config config = nullptr;
        duckdb_create_config(&config);
        duckdb_set_config(config, "access_mode", access_mode);
        char* error = nullptr;
        EXPECT_EQ(duckdb_open_ext(file.c_str(), &engine_, config, &error), DuckDBSuccess)
            << (error == nullptr ? "" : error);
        duckdb_free(error);
        duckdb_destroy_config(&config);
    }
    ~PlainEngine() { duckdb_close(&engine_); }
    PlainEngine(const PlainEngine&) = delete;
    PlainEngine& operator=(const PlainEngine&) = delete;

    duckdb_database get() const { return engine_; }
    /** Runs a script on a separate connection; returns the error text, empty when it succeeded. */
    std::string Run(const std::string& script) const {
        duckdb_connection connection = nullptr;
        duckdb_connect(engine_, &connection);
        duckdb_result result;
        const bool worked = duckdb_query(connection, script.c_str(), &result) == DuckDBSuccess;
        std::string error = worked ? "" : duckdb_result_error(&result);
        duckdb_destroy_result(&result);
        duckdb_disconnect(&connection);
        return error;
    }
    std::string Text(const std::string& query) const {
        BackupStop stop;
        return SqlWorker(engine_, stop).Text(query);
    }

  private:
    duckdb_database engine_ = nullptr;
};

/** "none", or the text of the `BackupError` that the snapshot throws. */
inline std::string SnapshotError(const PlainEngine& source, const std::string& target) {
    BackupStop stop;
    try {
        TakeSnapshot(source.get(), target, stop);
    } catch (const BackupError& error) {
        return error.what();
    }
    return "none";
}

}  // namespace mduckdb
