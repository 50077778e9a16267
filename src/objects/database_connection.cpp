#include <utility>

#include "base/errors.h"
#include "base/holders.h"
#include "duckdb_internals/pending_error.h"
#include "nbx/hooks.h"
#include "objects/database.h"

namespace mduckdb {

namespace {

/** Whether the host lets the call that runs now be interrupted. */
bool IsInterruptionAllowed() {
    const auto is_local_call = nbx::mrsql::gpIsLocalSqlCall_PTR;
    return is_local_call != nullptr && (!is_local_call() || nbx::mrsql::IsLocalSqlCancellationAllowed());
}

}  // namespace

SharedConnection DuckDBDatabase::get_Connection() const {
    const nbx::MutexLock lock(connection_mutex_);
    return connection_;
}

void DuckDBDatabase::ReplaceConnection(SharedConnection connection) {
    const nbx::MutexLock lock(connection_mutex_);
    connection_ = std::move(connection);
}

void DuckDBDatabase::Interrupt() {
    if (!IsInterruptionAllowed()) {
        return;
    }
    const nbx::MutexLock lock(connection_mutex_);
    if (connection_) {
        is_interrupted_.store(true);
        duckdb_interrupt(*connection_);
    }
}

void DuckDBDatabase::RepeatInterrupt() {
    if (!is_interrupted_.load()) {
        return;
    }
    const nbx::MutexLock lock(connection_mutex_);
    if (connection_) {
        duckdb_interrupt(*connection_);
    }
}

void DuckDBDatabase::ThrowIfInterrupted() {
    if (is_interrupted_.exchange(false)) {
        throw nbx::xInterruptError(kInterruptErrorCode);
    }
}

duckdb_state DuckDBDatabase::ExecutePrepared(duckdb_prepared_statement prepared, duckdb_result* out_result) {
    // DuckDB forgets interrupts when it begins a query, which happens in the first of the two calls.
    PendingHolder pending;
    if (duckdb_pending_prepared(prepared, pending.Receive()) != DuckDBSuccess) {
        TakePendingError(pending.get(), out_result);
        return DuckDBError;
    }
    RepeatInterrupt();
    return duckdb_execute_pending(pending.get(), out_result);
}

}  // namespace mduckdb
