#pragma once

#include <string>

#include "backup/sql_worker.h"

namespace mduckdb {

/** A separate engine on a file that nobody else has open, closed at the end of the scope. */
class FileEngine : nbx::noncopyable {
  public:
    enum class Access { reading, writing };

    /** `memory_limit`: as DuckDB shows it; empty means DuckDB's default. What does not fit is written to
        `spill_folder`. Throws `BackupError` with DuckDB's message. */
    FileEngine(const std::string& file, Access access, const std::string& memory_limit,
               const std::string& spill_folder);
    ~FileEngine() { duckdb_close(&handle_); }

    duckdb_database get() const noexcept { return handle_; }

  private:
    duckdb_database handle_ = nullptr;
};

}  // namespace mduckdb
