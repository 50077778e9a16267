#pragma once

#include <duckdb.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backup/error.h"
#include "backup/stop.h"

namespace mduckdb {

/** One row of texts; SQL NULL is an empty optional. */
using TextRow = std::vector<std::optional<std::string>>;

/** A separate connection to an engine, whose statements a `BackupStop` can stop. The engine must outlive
 it. */
class SqlWorker : nbx::noncopyable {
  public:
    /** Throws `BackupError` when DuckDB cannot connect. */
    SqlWorker(duckdb_database engine, BackupStop& stop);
    ~SqlWorker();

    /** Runs a statement whose rows do not matter. Throws `BackupError` with DuckDB's message. */
    void Run(const std::string& sql);
    /** The same without an exception, for destructors and retries; false when DuckDB refuses. */
    bool TryRun(const std::string& sql) noexcept;
    /** Runs a query whose columns are all VARCHAR. Throws `BackupError` with DuckDB's message. */
    std::vector<TextRow> Rows(const std::string& sql);
    /** The first cell of such a query; empty for NULL and for no row. */
    std::string Text(const std::string& sql);

    duckdb_connection get() const noexcept { return connection_; }
    BackupStop& get_Stop() const noexcept { return stop_; }

  private:
    BackupStop& stop_;
    duckdb_connection connection_ = nullptr;
};

/** Extracts the message from DuckDB's error text, which may be JSON. */
std::string MessageOf(const char* duckdb_text);

}  // namespace mduckdb
