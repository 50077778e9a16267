#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nbx/mrsql/duckdb_appender.h"
#include "objects/database_link.h"
#include "objects/operation.h"
#include "objects/table_appender.h"
#include "values/host_value_reading.h"

namespace mduckdb {

/** `I_DuckDBAppender` on one table of a database.

    It is in the database's list from creation to its last release. Calls take turns by a mutex of their own,
    which is taken after the engine lock and never before it, and is held while DuckDB stores rows: a database
    that closes waits for it. */
class DuckDBAppender final : public nbx::Counted<nbx::mrsql::I_DuckDBAppender>, public SideChild {
  public:
    /** Connects. The database is open. */
    DuckDBAppender(SharedLink link, SharedEngine engine, bool is_one_transaction) NBX_REQUIRES(gEngineLock);
    ~DuckDBAppender() override { Leave(); }
    /** Looks the table up, without the engine lock. Only once, before anything else. */
    void Start(const nbx::mrsql::DuckDBAppenderOptions& options);

    uint32_t Release() override;
    /** Always null: an appender has no further interfaces. */
    void* QueryInterface(uint32_t /*interface_id*/) override { return nullptr; }

    uint32_t get_ColumnCount() const override { return static_cast<uint32_t>(names_.size()); }
    const nbx::String& get_ColumnName(uint32_t column_index) const override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> get_Database() override { return tie_.get_Database(); }
    void AppendRow(nbx::smart_ptr<nbx::ValueRow> row) override;
    void AppendRows(nbx::smart_ptr<nbx::ValueRows> rows) override;
    void AppendColumns(const nbx::mrsql::DuckDBColumnArray* columns, uint32_t column_count,
                       uint64_t row_count) override;
    void Flush() override;
    void Commit() override;
    void Rollback() override;
    void Close() override;
    uint64_t get_RowCount() const override { return row_count_.load(); }
    uint64_t get_StoredRowCount() const override { return stored_count_.load(); }
    uint64_t get_PendingRowCount() const override { return pending_count_.load(); }

    void Cut() noexcept override { tie_.Cut(); }
    const HostValueReading& get_Reading() const noexcept override { return reading_; }
    void Detach() noexcept override;

  private:
    class Work;

    /** Throws "DuckDBAppender is invalid" after `Close` or the end of the database. */
    void RequireOpen() const NBX_REQUIRES(mutex_);
    /** Throws when a host value that this appender reads calls it on the same thread. */
    void RefuseInnerCall() const;
    void AppendOne(const nbx::ValueRow* row) NBX_REQUIRES(mutex_);
    /** The database has closed: what is pending is lost, which `Close` reports. */
    void LoseRows() noexcept NBX_REQUIRES(mutex_);
    /** Throws with the row and the column. */
    void StoreCells(const nbx::ValueRow& row) NBX_REQUIRES(mutex_);
    /** Stores the next rows of the arrays. Throws with the row and the column of the first element that
       cannot be stored; the rows before it are appended. */
    void StorePart(const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first, idx_t count)
        NBX_REQUIRES(mutex_);
    /** Stores and commits the next rows without collecting them, which would copy them through memory once
       more; returns how many. 0 if nothing is stored: because these rows need not be stored yet, or because
       they cannot be stored, whose reason is found by collecting them. Throws as a flush does. */
    idx_t StoreAtOnce(const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first, uint64_t count)
        NBX_REQUIRES(mutex_);
    idx_t StoreAtOnceIn(Work& work, const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first, idx_t most)
        NBX_REQUIRES(mutex_);
    void CountStored(uint64_t count) NBX_REQUIRES(mutex_);
    /** The next rows are appended. */
    void Keep(uint64_t count) NBX_REQUIRES(mutex_);
    /** Stores the collected rows, and commits unless everything is one transaction. */
    void FlushRows() NBX_REQUIRES(mutex_);
    void StoreRows(bool commit) NBX_REQUIRES(mutex_);
    void StoreIn(Work& work, bool commit) NBX_REQUIRES(mutex_);
    /** After a failure: rolls back, discards all pending rows and throws. */
    [[noreturn]] void Fail(Work& work, bool is_store, Failure error) NBX_REQUIRES(mutex_);
    void Discard() noexcept NBX_REQUIRES(mutex_);
    /** The numbers of the pending rows in words. */
    std::string DescribeRows(uint64_t failing_row) const NBX_REQUIRES(mutex_);
    [[noreturn]] void ThrowCellError(std::size_t column, const std::string& message) const;
    [[noreturn]] void ThrowRowError(const std::string& message) const;
    /** Leaves the database's list; what is pending is discarded. May be called twice. */
    void Leave() noexcept;

    DatabaseTie tie_;
    CensusEntry census_;
    const bool is_one_transaction_;
    HostValueReading reading_;
    nbx::Mutex mutex_;
    /** Null once the appender is closed. */
    std::unique_ptr<TableAppender> table_ NBX_GUARDED_BY(mutex_);
    /** Not changed after `Start`. */
    std::vector<nbx::String> names_;
    /** The database closed while rows were pending. */
    bool has_lost_rows_ NBX_GUARDED_BY(mutex_) = false;
    // Written under the mutex.
    std::atomic<uint64_t> row_count_{0};
    std::atomic<uint64_t> stored_count_{0};
    std::atomic<uint64_t> pending_count_{0};
};

/** DuckDB works for an appender. A database that closes waits for the end; until the deadline ends, the time
    limit of the database cuts the work. */
class DuckDBAppender::Work : nbx::noncopyable {
  public:
    explicit Work(DuckDBAppender& appender) NBX_REQUIRES(appender.mutex_)
        : appender_(appender),
          link_(appender.tie_.get_Link()),
          turn_(link_->get_Appends()),
          connection_(appender.table_->get_Interruptible()),
          limit_(link_->get_TimeLimit()) {
        connection_.ClearInterrupted();
        // The database may have been closed since, and would no longer wait.
        appender.RequireOpen();
        SetDeadline(deadline_, limit_, connection_);
        appender_.census_.BeginRunning();
    }
    ~Work() {
        deadline_.reset();
        appender_.census_.EndRunning();
    }

    void EndDeadline() noexcept {
        is_cut_ = is_cut_ || (deadline_ && deadline_->get_HasCut());
        deadline_.reset();
    }
    bool get_IsCut() const noexcept { return is_cut_; }
    uint64_t get_Limit() const noexcept { return limit_; }
    InterruptibleConnection& get_Connection() noexcept { return connection_; }

  private:
    DuckDBAppender& appender_;
    const SharedLink link_;
    const ExportGate::Scope turn_;
    InterruptibleConnection& connection_;
    const uint64_t limit_;
    bool is_cut_ = false;
    std::optional<Deadline> deadline_;
};

}  // namespace mduckdb
