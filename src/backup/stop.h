#pragma once

#include <duckdb.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "nbx/unknown.h"

namespace mduckdb {

/** Lets other threads end a snapshot, a check or a restore. */
class BackupStop : nbx::noncopyable {
  public:
    /** From any thread. What runs ends soon with `BackupInterrupted`. */
    void Stop() noexcept;
    bool get_IsStopped() const noexcept { return is_stopped_.load(); }
    /** Throws `BackupInterrupted` once `Stop` was called. */
    void Check() const;

  private:
    friend class SqlWorker;

    void Add(duckdb_connection connection);
    void Remove(duckdb_connection connection) noexcept;

    std::atomic<bool> is_stopped_{false};
    std::mutex mutex_;
    std::vector<duckdb_connection> connections_;
};

/** What can be stopped of one database at present. From any thread. */
class RunningStops : nbx::noncopyable {
  public:
    /** Listed for a scope. */
    class Scope : nbx::noncopyable {
      public:
        Scope(RunningStops& stops, BackupStop& stop);
        ~Scope();

      private:
        RunningStops& stops_;
        BackupStop& stop_;
    };

    void StopAll() noexcept;

  private:
    std::mutex mutex_;
    std::vector<BackupStop*> stops_;
};

}  // namespace mduckdb
