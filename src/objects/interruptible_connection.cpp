#include "objects/interruptible_connection.h"

#include <utility>

#include "base/holders.h"
#include "duckdb_internals/managed_results.h"
#include "duckdb_internals/progress_counting.h"
#include "duckdb_internals/results.h"
#include "duckdb_internals/task_threads.h"
#include "duckdb_internals/written_files.h"

namespace mduckdb {

SharedConnection InterruptibleConnection::get() const {
    const nbx::MutexLock lock(mutex_);
    return HasOwn() ? connection_ : nullptr;
}

void InterruptibleConnection::Replace(SharedConnection connection) noexcept {
    const nbx::MutexLock lock(mutex_);
    connection_ = std::move(connection);
    process_ = get_ProcessNumber();
    is_counted_.store(false);
    are_threads_reported_.store(false);
}

void InterruptibleConnection::Disconnect() noexcept {
    const nbx::MutexLock lock(mutex_);
    if (HasOwn()) {
        duckdb_disconnect(connection_.get());
    }
    connection_.reset();
}

void InterruptibleConnection::Interrupt() {
    const nbx::MutexLock lock(mutex_);
    if (HasOwn()) {
        is_interrupted_.store(true);
        duckdb_interrupt(*connection_);
        waits_->End();
    }
}

void InterruptibleConnection::Cut() noexcept {
    const nbx::MutexLock lock(mutex_);
    if (HasOwn()) {
        duckdb_interrupt(*connection_);
        waits_->EndOnce();
    }
}

void InterruptibleConnection::ReportThreads(bool may_bring_client) {
    const SharedConnection connection = get();
    if (connection && !are_threads_reported_.load() && (may_bring_client || HasHttpClient(*connection))) {
        ReportTaskThreads(*connection, waits_);
        are_threads_reported_.store(true);
    }
}

void InterruptibleConnection::ClearInterrupted() {
    if (!is_interrupted_.load()) {
        return;
    }
    // Under the mutex: between the two steps of an interrupt the flag would be cleared and DuckDB
    // interrupted.
    const nbx::MutexLock lock(mutex_);
    is_interrupted_.store(false);
}

void InterruptibleConnection::SendTracking() {
    const bool is_tracked = is_tracked_.load();
    if (const SharedConnection connection = get()) {
        CountProgress(*connection, is_tracked);
        is_counted_.store(is_tracked);
    }
}

duckdb_query_progress_type InterruptibleConnection::get_Progress() const {
    const nbx::MutexLock lock(mutex_);
    return HasOwn() ? duckdb_query_progress(*connection_) : duckdb_query_progress_type{-1, 0, 0};
}

void InterruptibleConnection::RepeatInterrupt() {
    if (!is_interrupted_.load()) {
        return;
    }
    const nbx::MutexLock lock(mutex_);
    if (HasOwn()) {
        duckdb_interrupt(*connection_);
    }
}

duckdb_state InterruptibleConnection::Prepare(duckdb_connection connection, const std::string& sql,
                                              duckdb_prepared_statement* out_prepared) {
    const ServerWaits::Work work = BeginWork();
    return duckdb_prepare(connection, sql.c_str(), out_prepared);
}

duckdb_state InterruptibleConnection::PrepareExtracted(duckdb_connection connection,
                                                       duckdb_extracted_statements extracted, idx_t index,
                                                       duckdb_prepared_statement* out_prepared) {
    const ServerWaits::Work work = BeginWork();
    return duckdb_prepare_extracted_statement(connection, extracted, index, out_prepared);
}

duckdb_state InterruptibleConnection::ExecutePrepared(duckdb_prepared_statement prepared,
                                                      duckdb_result* out_result) {
    return Execute(&duckdb_pending_prepared_managed, prepared, out_result);
}

duckdb_state InterruptibleConnection::ExecuteStreaming(duckdb_prepared_statement prepared,
                                                       duckdb_result* out_result) {
    const duckdb_state state = Execute(&duckdb_pending_prepared_stream, prepared, out_result);
    if (state != DuckDBSuccess) {
        return state;
    }
    const ServerWaits::Work work = BeginWork();
    return duckdb_await_stream(out_result);
}

duckdb_state InterruptibleConnection::Execute(Start start, duckdb_prepared_statement prepared,
                                              duckdb_result* out_result) {
    // On one of its threads, DuckDB loads a client for an address to which it writes. What reads from one has
    // loaded it when it was prepared.
    const bool may_bring_client = WritesFiles(prepared);
    if (may_bring_client || ServerWaits::get_HasClients()) {
        ReportThreads(may_bring_client);
    }
    const ServerWaits::Work work = BeginWork(may_bring_client);
    // DuckDB forgets interrupts when it begins a query, which happens in the first of the two calls.
    PendingHolder pending;
    if (start(prepared, pending.Receive()) != DuckDBSuccess) {
        TakePendingError(pending.get(), out_result);
        return DuckDBError;
    }
    RepeatInterrupt();
    const duckdb_state state = duckdb_execute_pending(pending.get(), out_result);
    if (state != DuckDBSuccess && ServerWaits::get_HasClients()) {
        // Now, while an interrupt also ends what the store is asked then.
        pending.Reset();
        if (const SharedConnection connection = get()) {
            CloseUnfinishedFiles(*connection, prepared);
        }
    }
    return state;
}

}  // namespace mduckdb
