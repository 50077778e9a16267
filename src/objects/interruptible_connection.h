#pragma once

#include <duckdb.h>

#include <atomic>
#include <memory>
#include <string>

#include "base/process.h"
#include "base/server_waits.h"
#include "engines/session.h"
#include "nbx/engine_lock.h"

namespace mduckdb {

/** A connection that another thread may interrupt, replace or end while a query runs on it. A mutex guards
   which connection it is; the mutex is taken last, and never while DuckDB works. */
class InterruptibleConnection : nbx::noncopyable {
  public:
    /** Returns the connection, or null: also in the child of a fork, where it is the parent's. */
    SharedConnection get() const;
    void Replace(SharedConnection connection) noexcept;
    /** Disconnects, if there is a connection; forgets one that is the parent's. */
    void Disconnect() noexcept;

    /** Interrupts the query that runs on the connection; does nothing without a connection. */
    void Interrupt();
    /** Ends what runs on the connection, without being an interrupt that is reported. */
    void Cut() noexcept;
    /** Forgets an interrupt that came before; at the start of every run. */
    void ClearInterrupted();
    /** Whether `Interrupt` was called since; each interrupt is reported once. */
    bool TakeInterrupted() noexcept { return is_interrupted_.load() && is_interrupted_.exchange(false); }
    /** Whether DuckDB counts the progress of what runs on the connection, from the next `ApplyTracking` on.
     */
    void put_IsTracked(bool is_tracked) noexcept { is_tracked_.store(is_tracked); }
    bool get_IsTracked() const noexcept { return is_tracked_.load(); }
    /** Tells DuckDB whether to count, if that has changed or the connection is new. Not while DuckDB works.
     */
    void ApplyTracking() {
        if (is_tracked_.load() != is_counted_.load()) {
            SendTracking();
        }
    }
    /** DuckDB's figures for the query that runs; a negative percentage when there are none. */
    duckdb_query_progress_type get_Progress() const;

    bool get_IsInterrupted() const noexcept { return is_interrupted_.load(); }
    /** To be held by the thread that calls DuckDB, so that it does not wait for a server when it is
       interrupted or cut. It must not run the host's code meanwhile. */
    ServerWaits::Work BeginWork(bool may_bring_client = false) noexcept {
        return ServerWaits::Work(*waits_, is_interrupted_, may_bring_client);
    }
    /** Like `duckdb_prepare` on this connection, which the caller keeps. Preparing already reads from files
       what names and types their columns have. */
    duckdb_state Prepare(duckdb_connection connection, const std::string& sql,
                         duckdb_prepared_statement* out_prepared);
    /** Like `duckdb_prepare_extracted_statement`, in the same way. */
    duckdb_state PrepareExtracted(duckdb_connection connection, duckdb_extracted_statements extracted,
                                  idx_t index, duckdb_prepared_statement* out_prepared);
    /** Executes like `duckdb_execute_prepared`, but an `Interrupt` also stops it when it came before DuckDB
        began the query, which clears DuckDB's own flag. The caller destroys `*out_result`, also on
        failure. */
    duckdb_state ExecutePrepared(duckdb_prepared_statement prepared, duckdb_result* out_result);
    /** The same, for a result whose rows DuckDB computes while they are read. */
    duckdb_state ExecuteStreaming(duckdb_prepared_statement prepared, duckdb_result* out_result);

  private:
    using Start = duckdb_state (*)(duckdb_prepared_statement prepared, duckdb_pending_result* out_result);
    duckdb_state Execute(Start start, duckdb_prepared_statement prepared, duckdb_result* out_result);
    void SendTracking();
    bool HasOwn() const noexcept NBX_REQUIRES(mutex_) {
        return connection_ != nullptr && process_ == get_ProcessNumber();
    }
    /** Learns which of DuckDB's threads work for the connection, once there can be a server to wait for. */
    void ReportThreads(bool may_bring_client);
    /** Stops the query that DuckDB has begun if an interrupt came before that. */
    void RepeatInterrupt();

    std::atomic<bool> is_interrupted_{false};
    std::atomic<bool> is_tracked_{false};
    /** What DuckDB was told for this connection. */
    std::atomic<bool> is_counted_{false};
    /** DuckDB reports the threads of this connection. */
    std::atomic<bool> are_threads_reported_{false};
    /** DuckDB's connection keeps it, too. */
    const std::shared_ptr<ServerWaits> waits_ = std::make_shared<ServerWaits>();
    mutable nbx::Mutex mutex_;
    SharedConnection connection_ NBX_GUARDED_BY(mutex_);
    uint32_t process_ NBX_GUARDED_BY(mutex_) = 0;
};

}  // namespace mduckdb
