#include "objects/database_link.h"

#include <algorithm>

#include "base/errors.h"
#include "base/text.h"

namespace mduckdb {

DatabaseLink::DatabaseLink(nbx::mrsql::I_DuckDBDatabase& owner, nbx::smart_ptr<nbx::I_Location> location)
    : owner_(owner),
      location_(std::move(location)),
      census_(CensusLine::kDatabase, 0, ToUtf8(location_->get_PathText())) {}

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> DatabaseLink::get_Database() noexcept {
    uint32_t count = references_.load(std::memory_order_relaxed);
    do {
        // At 0 the destructor may be running or done: the object must not be revived.
        if (count == 0) {
            return nullptr;
        }
    } while (!references_.compare_exchange_weak(count, count + 1, std::memory_order_relaxed));
    return nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>::Adopt(&owner_);
}

SharedConnection DatabaseLink::RequireConnection() const {
    SharedConnection connection = get_Connection();
    if (!connection) {
        ThrowError("DuckDBDatabase is not open");
    }
    return connection;
}

nbx::mrsql::DuckDBProgress DatabaseLink::get_Progress() const {
    nbx::mrsql::DuckDBProgress progress;
    progress.is_running = census_.get_IsRunning();
    const duckdb_query_progress_type figures = connection_.get_Progress();
    // Of a source that cannot tell, DuckDB says for ever 0 or nothing, as the threads happened to begin.
    if (progress.is_running && figures.percentage > 0) {
        progress.share = std::min(figures.percentage / 100, 1.0);
        progress.rows = figures.rows_processed;
        progress.total_rows = figures.total_rows_to_process;
    }
    return progress;
}

void DatabaseLink::Interrupt() {
    connection_.Interrupt();
    const nbx::MutexLock lock(sides_mutex_);
    sides_.ForEach([](InterruptibleConnection* side) { side->Interrupt(); });
}

void DatabaseLink::AddSide(InterruptibleConnection& connection) {
    const nbx::MutexLock lock(sides_mutex_);
    sides_.Add(&connection);
}

void DatabaseLink::RemoveSide(InterruptibleConnection& connection) noexcept {
    const nbx::MutexLock lock(sides_mutex_);
    sides_.Remove(&connection);
}

void DatabaseLink::ThrowError(std::string_view message) const {
    ThrowDuckDBError(get_ErrorPath(), message);
}

void DatabaseLink::ThrowFailure(const Failure& failure) {
    ThrowIfInterrupted();
    ThrowDuckDBError(get_ErrorPath(), failure);
}

std::string DatabaseLink::ToSql(const nbx::String& sql) const {
    std::string text = ToUtf8(sql);
    if (text.find('\0') != std::string::npos) {
        ThrowError("SQL text must not contain NUL characters");
    }
    return text;
}

}  // namespace mduckdb
