#include "objects/interruptible_connection.h"

#include <utility>

#include "base/holders.h"
#include "duckdb_internals/managed_results.h"
#include "duckdb_internals/progress_counting.h"
#include "duckdb_internals/results.h"
#include "duckdb_internals/task_threads.h"

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

void InterruptibleConnection::ReportThreads() {
    const SharedConnection connection = get();
    if (connection && !are_threads_reported_.load() && HasHttpClient(*connection)) {
        ReportTaskThreads(*connection, waits_);
        are_threads_reported_.store(true);
    }
}

void InterruptibleConnection::ClearInterrupted() {
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
    if (ServerWaits::get_HasClients()) {
        ReportThreads();
    }
    const ServerWaits::Work work = BeginWork();
    // DuckDB forgets interrupts when it begins a query, which happens in the first of the two calls.
    PendingHolder pending;
    if (start(prepared, pending.Receive()) != DuckDBSuccess) {
        TakePendingError(pending.get(), out_result);
        return DuckDBError;
    }
    RepeatInterrupt();
    return duckdb_execute_pending(pending.get(), out_result);
}

}  // namespace mduckdb
