#pragma once

#include <duckdb.h>
#include <gtest/gtest.h>

#include <string>

#include "base/holders.h"

namespace mduckdb::test {

/** DuckDB alone, in memory (null) or on a file, closed at the end of the scope. */
class AloneEngine {
  public:
    explicit AloneEngine(const char* file) {
        EXPECT_EQ(DuckDBSuccess, duckdb_open(file, &database_));
        EXPECT_EQ(DuckDBSuccess, duckdb_connect(database_, &connection_));
    }
    ~AloneEngine() {
        duckdb_disconnect(&connection_);
        duckdb_close(&database_);
    }
    AloneEngine(const AloneEngine&) = delete;
    AloneEngine& operator=(const AloneEngine&) = delete;

    duckdb_connection get_Connection() const { return connection_; }
    void Run(const std::string& sql) const {
        ResultHolder result;
        EXPECT_EQ(DuckDBSuccess, duckdb_query(connection_, sql.c_str(), result.Receive()))
            << sql << duckdb_result_error(result.get());
    }

  private:
    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

/** Runs SQL with DuckDB alone, in memory (null) or on a file. */
inline void RunAlone(const char* file, const std::string& sql) {
    AloneEngine(file).Run(sql);
}

}  // namespace mduckdb::test
