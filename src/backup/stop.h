#pragma once

#include <duckdb.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "nbx/unknown.h"

namespace mduckdb {

/** Lets other threads stop a snapshot, a check or a restore. */
class BackupStop : nbx::noncopyable {
  public:
    /** May be called from any thread. Running work ends soon with `BackupInterrupted`. */
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

/** The running work of one database that can be stopped. May be used from any thread. */
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
