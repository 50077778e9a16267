#pragma once

#include <duckdb.h>

#include <string>

namespace bench {

/** A DuckDB engine and a connection through the C API alone, both closed at the end of the scope. Failures
    terminate the program. */
class BareDuckDB {
  public:
    enum class Access { reading, writing };

    /** In memory when `path` is empty. A `threads` of 0 keeps DuckDB's default. */
    explicit BareDuckDB(const std::string& path, Access access = Access::reading, unsigned threads = 1,
                        const std::string& storage_version = "");
    ~BareDuckDB();
    BareDuckDB(const BareDuckDB&) = delete;
    BareDuckDB& operator=(const BareDuckDB&) = delete;

    duckdb_connection get() const noexcept { return connection_; }
    duckdb_database get_Engine() const noexcept { return database_; }
    /** Runs a query and ignores its result. */
    void Run(const std::string& sql) const;
    /** The single cell of a query, a 64-bit number. */
    int64_t GetNumber(const std::string& sql) const;

  private:
    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

duckdb_prepared_statement Prepare(duckdb_connection connection, const std::string& sql);
/** Executes and checks only whether the result is a success. */
void ExecuteAndDrop(duckdb_prepared_statement prepared);

}  // namespace bench
