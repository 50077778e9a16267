#include "objects/database_link.h"

#include "base/errors.h"
#include "base/holders.h"
#include "base/text.h"
#include "duckdb_internals/results.h"

namespace mduckdb {

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> DatabaseLink::get_Database() noexcept {
    uint32_t count = references_.load(std::memory_order_relaxed);
    do {
        // At 0 the destructor may be running, or over: nothing brings the object back.
        if (count == 0) {
            return nullptr;
        }
    } while (!references_.compare_exchange_weak(count, count + 1, std::memory_order_relaxed));
    return nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>::Adopt(&owner_);
}

SharedConnection DatabaseLink::get_Connection() const {
    const nbx::MutexLock lock(connection_mutex_);
    return connection_;
}

SharedConnection DatabaseLink::RequireConnection() const {
    SharedConnection connection = get_Connection();
    if (!connection) {
        ThrowError("DuckDBDatabase is not open");
    }
    return connection;
}

void DatabaseLink::ReplaceConnection(SharedConnection connection) {
    const nbx::MutexLock lock(connection_mutex_);
    connection_ = std::move(connection);
}

void DatabaseLink::Disconnect() noexcept {
    const nbx::MutexLock lock(connection_mutex_);
    if (connection_) {
        duckdb_disconnect(connection_.get());
        connection_.reset();
    }
}

void DatabaseLink::Interrupt() {
    const nbx::MutexLock lock(connection_mutex_);
    if (connection_) {
        is_interrupted_.store(true);
        duckdb_interrupt(*connection_);
    }
}

void DatabaseLink::RepeatInterrupt() {
    if (!is_interrupted_.load()) {
        return;
    }
    const nbx::MutexLock lock(connection_mutex_);
    if (connection_) {
        duckdb_interrupt(*connection_);
    }
}

void DatabaseLink::ThrowIfInterrupted() {
    if (TakeInterrupted()) {
        throw nbx::xInterruptError(kInterruptErrorCode);
    }
}

duckdb_state DatabaseLink::ExecutePrepared(duckdb_prepared_statement prepared, duckdb_result* out_result) {
    // DuckDB forgets interrupts when it begins a query, which happens in the first of the two calls.
    PendingHolder pending;
    if (duckdb_pending_prepared(prepared, pending.Receive()) != DuckDBSuccess) {
        TakePendingError(pending.get(), out_result);
        return DuckDBError;
    }
    RepeatInterrupt();
    return duckdb_execute_pending(pending.get(), out_result);
}

void DatabaseLink::ThrowError(std::string_view message) const {
    ThrowDuckDBError(get_ErrorPath(), message);
}

void DatabaseLink::ThrowFailure(std::string_view message) {
    ThrowIfInterrupted();
    ThrowError(message);
}

std::string DatabaseLink::ToSql(const nbx::String& sql) const {
    std::string text = ToUtf8(sql);
    if (text.find('\0') != std::string::npos) {
        ThrowError("SQL text must not contain NUL characters");
    }
    return text;
}

}  // namespace mduckdb
