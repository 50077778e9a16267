#pragma once

#include <duckdb.h>

#include <string>

#include "measure.h"

namespace bench {

/** A query whose cells are delivered. */
struct Workload {
    std::string name;
    std::string sql;
};

/** The database file with the tables, and the Parquet file, that the workloads read. Made on first use
    in the options' folder, deterministic. */
struct Data {
    std::string database;
    std::string parquet;
    /** One BIGINT column and many rows. */
    std::string tall_parquet;
};
const Data& PrepareData(const Options& options);

/** W1 mixed numbers and text, `numbers` W1 without the text, W2 sixteen columns of orders (W2-parquet: from
    the Parquet file), W3 text, W4 nested columns and a VARIANT. */
Workload GetWorkload(const std::string& name, const Options& options);

/** A bare DuckDB database with one thread and a connection, closed at the end of the scope. */
class BareDuckDB {
  public:
    explicit BareDuckDB(const std::string& path, bool read_only = true);
    ~BareDuckDB();
    BareDuckDB(const BareDuckDB&) = delete;
    BareDuckDB& operator=(const BareDuckDB&) = delete;

    duckdb_connection get() const noexcept { return connection_; }
    duckdb_database get_Engine() const noexcept { return database_; }
    /** Runs a query whose result nobody wants; ends the program when it fails. */
    void Run(const std::string& sql) const;

  private:
    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

}  // namespace bench
