#include "objects/appender.h"

#include <algorithm>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "values/host_value_binding.h"

namespace mduckdb {

namespace {

[[noreturn]] void ThrowInvalid() {
    ThrowDetachedError("DuckDBAppender is invalid");
}

}  // namespace

DuckDBAppender::DuckDBAppender(SharedLink link, SharedEngine engine, bool is_one_transaction)
    : tie_(std::move(link)),
      census_(CensusLine::kAppender, tie_.get_Link()->get_Census().get_Number()),
      is_one_transaction_(is_one_transaction),
      table_(std::make_unique<TableAppender>(tie_.get_Link(), std::move(engine))) {
    census_.Enter();
    tie_.get_Siblings().Add(static_cast<SideChild*>(this));
}

void DuckDBAppender::Start(const nbx::mrsql::DuckDBAppenderOptions& options) {
    const nbx::MutexLock lock(mutex_);
    // The database may have been closed since.
    RequireOpen();
    Work work(*this);
    table_->Open(*tie_.get_Link(), options);
    names_ = table_->get_Names();
}

uint32_t DuckDBAppender::Release() {
    return ReleaseWith([this]() noexcept {
        Leave();
        delete this;
    });
}

void DuckDBAppender::Leave() noexcept {
    try {
        census_.Leave();
        {
            // Without the engine lock, since DuckDB may have to roll back.
            const nbx::MutexLock lock(mutex_);
            table_.reset();
        }
        const EngineLockScope lock;
        tie_.get_Siblings().Remove(static_cast<SideChild*>(this));
    } catch (...) {  // Taking a lock may fail, which a destructor cannot report.
    }
}

void DuckDBAppender::Detach() noexcept {
    tie_.Cut();
    census_.Leave();
    if (reading_.IsAnywhere()) {
        // Only if this thread reads the value, or held the engine lock before the close began. The call that
        // reads it has the mutex, and does the rest; waiting for it could keep the engine lock from the
        // value.
        return;
    }
    const nbx::MutexLock lock(mutex_);
    LoseRows();
}

void DuckDBAppender::LoseRows() noexcept {
    has_lost_rows_ = has_lost_rows_ || pending_count_.load() > 0;
    pending_count_.store(0);
    table_.reset();
}

const nbx::String& DuckDBAppender::get_ColumnName(uint32_t column_index) const {
    return column_index < names_.size() ? names_[column_index] : nbx::String::sEmpty();
}

void DuckDBAppender::RefuseInnerCall() const {
    if (reading_.IsHere()) {
        ThrowDetachedError("DuckDBAppender is reading the value that calls it");
    }
}

void DuckDBAppender::RequireOpen() const {
    if (!table_ || tie_.get() == nullptr) {
        ThrowInvalid();
    }
}

void DuckDBAppender::AppendRow(nbx::smart_ptr<nbx::ValueRow> row) {
    RefuseInnerCall();
    const nbx::MutexLock lock(mutex_);
    AppendOne(row.get());
}

void DuckDBAppender::AppendRows(nbx::smart_ptr<nbx::ValueRows> rows) {
    RefuseInnerCall();
    const nbx::MutexLock lock(mutex_);
    RequireOpen();
    const std::size_t count = rows ? rows->get_Count() : 0;
    for (std::size_t i = 0; i < count; ++i) {
        AppendOne(rows->get_Item(i).get());
    }
}

void DuckDBAppender::AppendOne(const nbx::ValueRow* row) {
    RequireOpen();
    if (row == nullptr || row->get_Count() != names_.size()) {
        ThrowRowError(std::to_string(row != nullptr ? row->get_Count() : 0) + " values for " +
                      std::to_string(names_.size()) + " columns");
    }
    ChunkRows& rows = table_->get_Rows();
    if (rows.get_IsFull()) {
        FlushRows();
    }
    rows.Open();
    try {
        StoreCells(*row);
    } catch (...) {
        rows.Undo(1);
        if (tie_.get() == nullptr) {
            LoseRows();
        }
        throw;
    }
    Keep(1);
    if (tie_.get() == nullptr) {
        LoseRows();  // a value has closed the database
        ThrowInvalid();
    }
}

void DuckDBAppender::StoreCells(const nbx::ValueRow& row) {
    ChunkRows& rows = table_->get_Rows();
    std::vector<ColumnWriter>& columns = rows.get_Columns();
    std::string error;
    const HostValueReading::Scope reading(reading_);
    RequireOpen();  // a database that has begun to close waits for this call, and no value may wait for it
    for (std::size_t i = 0; i < columns.size(); ++i) {
        try {
            if (StoreHostValue(row.get_Item(i).get(), columns[i], rows.get_Row(), error)) {
                continue;
            }
        } catch (const nbx::mrsql::xDuckDBError& failed) {
            error = ToUtf8(failed.get_Message());
        }
        ThrowCellError(i, error);
    }
}

void DuckDBAppender::Keep(uint64_t count) {
    table_->get_Rows().Keep(count);
    // Only this thread writes: no locked instruction.
    row_count_.store(row_count_.load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
    pending_count_.store(pending_count_.load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
}

void DuckDBAppender::Flush() {
    RefuseInnerCall();
    const nbx::MutexLock lock(mutex_);
    RequireOpen();
    FlushRows();
}

void DuckDBAppender::Commit() {
    RefuseInnerCall();
    const nbx::MutexLock lock(mutex_);
    RequireOpen();
    StoreRows(true);
}

void DuckDBAppender::Rollback() {
    RefuseInnerCall();
    const nbx::MutexLock lock(mutex_);
    RequireOpen();
    table_->Rollback();
    Discard();
}

void DuckDBAppender::Close() {
    RefuseInnerCall();
    std::exception_ptr failure;
    {
        const nbx::MutexLock lock(mutex_);
        if (std::exchange(has_lost_rows_, false)) {
            ThrowInvalid();
        }
        if (!table_) {
            return;
        }
        try {
            StoreRows(true);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (...) {
            failure = std::current_exception();
        }
        // Before another thread appends rows that nothing would store.
        table_.reset();
        pending_count_.store(0);
    }
    tie_.Cut();
    Leave();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void DuckDBAppender::FlushRows() {
    StoreRows(!is_one_transaction_);
}

void DuckDBAppender::StoreRows(bool commit) {
    const uint64_t pending = pending_count_.load();
    ChunkRows& rows = table_->get_Rows();
    if (pending == 0 || (!commit && rows.get_Count() == 0)) {
        return;
    }
    Work work(*this);
    try {
        StoreIn(work, commit);
    } catch (const std::bad_alloc&) {
        // The collected rows can be stored again, unless they may have been committed; what the transaction
        // had before is gone.
        work.EndDeadline();
        table_->Rollback();
        if (table_->get_IsOutcomeUnknown() || pending_count_.load() != rows.get_Count()) {
            Discard();
        }
        throw;
    }
    rows.Clear();
    if (commit) {
        pending_count_.store(0);
        CountStored(pending);
    }
}

void DuckDBAppender::CountStored(uint64_t count) {
    stored_count_.store(stored_count_.load() + count);
    census_.put_Size(static_cast<int64_t>(stored_count_.load()), -1);
}

void DuckDBAppender::StoreIn(Work& work, bool commit) {
    Failure error;
    if (table_->get_Rows().get_Count() > 0) {
        const bool is_stored = table_->Store(error);
        // DuckDB forgets an interrupt that came before it began.
        if (!is_stored || work.get_Connection().get_IsInterrupted()) {
            Fail(work, !is_stored, std::move(error));
        }
    }
    // The outcome of a commit that is cut would be unknown.
    work.EndDeadline();
    if (commit && !table_->Commit(error)) {
        Fail(work, false, std::move(error));
    }
}

void DuckDBAppender::Fail(Work& work, bool is_store, Failure error) {
    work.EndDeadline();
    table_->Rollback();
    const bool is_interrupted = work.get_Connection().TakeInterrupted();
    if (work.get_IsCut()) {
        error = {DescribeCut(work.get_Limit()), nullptr};
    }
    const uint64_t row = is_store && !is_interrupted && !work.get_IsCut() ? table_->FindFailingRow(error) : 0;
    error.text = DescribeRows(row) + ": " + error.text;
    Discard();
    if (is_interrupted) {
        ThrowInterrupted();
    }
    ThrowDuckDBError(tie_.get_Link()->get_ErrorPath(), error);
}

void DuckDBAppender::Discard() noexcept {
    table_->get_Rows().Clear();
    pending_count_.store(0);
}

std::string DuckDBAppender::DescribeRows(uint64_t failing_row) const {
    const uint64_t last = row_count_.load();
    if (failing_row > 0) {
        return "Row " + std::to_string(last - table_->get_Rows().get_Count() + failing_row);
    }
    return "Rows " + std::to_string(last - pending_count_.load() + 1) + " to " + std::to_string(last);
}

void DuckDBAppender::ThrowCellError(std::size_t column, const std::string& message) const {
    tie_.get_Link()->ThrowError("Row " + std::to_string(row_count_.load() + 1) + ", column " +
                                QuoteIdentifier(ToUtf8(names_[column])) + ": " + message);
}

void DuckDBAppender::ThrowRowError(const std::string& message) const {
    tie_.get_Link()->ThrowError("Row " + std::to_string(row_count_.load() + 1) + ": " + message);
}

}  // namespace mduckdb
