#pragma once

#include <duckdb.h>

#include <atomic>

#include "engines/session.h"
#include "nbx/engine_lock.h"

namespace mduckdb {

/** A connection that another thread may interrupt, replace or end while a query runs on it. A mutex guards
   which connection it is; the mutex is taken last, and never while DuckDB works. */
class InterruptibleConnection : nbx::noncopyable {
  public:
    /** The connection, or null when there is none. */
    SharedConnection get() const;
    void Replace(SharedConnection connection) noexcept;
    /** Ends the connection, if there is one. */
    void Disconnect() noexcept;

    /** Interrupts the query that runs on the connection; nothing when there is no connection. */
    void Interrupt();
    /** Forgets an interrupt that came before; at the start of every run. */
    void ClearInterrupted();
    /** Whether `Interrupt` was called since; each interrupt is reported once. */
    bool TakeInterrupted() noexcept { return is_interrupted_.exchange(false); }
    /** Executes like `duckdb_execute_prepared`, but an `Interrupt` that came before DuckDB's own start
        of the query, at which it clears its own flag, cuts it too. The caller destroys `*out_result`,
        also on failure. */
    duckdb_state ExecutePrepared(duckdb_prepared_statement prepared, duckdb_result* out_result);

  private:
    /** Cuts the query that DuckDB has begun, when an interrupt came before it began. */
    void RepeatInterrupt();

    std::atomic<bool> is_interrupted_{false};
    mutable nbx::Mutex mutex_;
    SharedConnection connection_ NBX_GUARDED_BY(mutex_);
};

}  // namespace mduckdb
