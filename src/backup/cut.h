#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "backup/sql_worker.h"

namespace mduckdb {

/** A moment of an open database: the file, and its log up to a certain length, hold what had been committed
    then.

    A transaction that has made a table and never commits keeps every checkpoint away, so that the file's
    blocks stay as they are; the log only grows. The guard is as short as possible: while it lasts, plain
    CHECKPOINT fails, and FORCE CHECKPOINT waits and blocks every new transaction that may write. The reading
    transaction begins before the guard and may outlive it. */
class Cut : nbx::noncopyable {
  public:
    /** `file`: the file of the engine's main database. A read-only engine needs no guard, since nobody can
        write to its file. Throws `BackupError`. */
    Cut(duckdb_database engine, std::string file, bool is_read_only, BackupStop& stop);
    ~Cut();

    /** How many bytes of the log belong to the cut. */
    uint64_t get_LogSize() const noexcept { return log_size_; }
    /** Whether the reader sees exactly what the cut holds. */
    bool get_IsReaderExact() const noexcept { return is_exact_; }
    SqlWorker& get_Reader() noexcept { return *reader_; }
    /** Allows checkpoints again. Nothing may be copied from the source afterwards. */
    void EndGuard() noexcept;

  private:
    void Begin(duckdb_database engine, BackupStop& stop);
    void BeginReading(duckdb_database engine, BackupStop& stop);

    std::string file_;
    std::optional<SqlWorker> reader_;
    std::optional<SqlWorker> guard_;
    uint64_t log_size_ = 0;
    bool is_exact_ = false;
};

/** The log that belongs to a database file. */
inline std::string LogOf(const std::string& file) {
    return file + ".wal";
}

}  // namespace mduckdb
