#pragma once

#include <duckdb.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "base/census.h"
#include "base/engine_lock.h"
#include "base/error_facts.h"
#include "duckdb_internals/managed_results.h"
#include "engines/session.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_progress.h"
#include "objects/child_lists.h"
#include "objects/export_gate.h"
#include "objects/interruptible_connection.h"

namespace mduckdb {

class Operation;

/** What a database and its children (statements, cursors, query results, appenders) share: the connection,
   the interrupt flag, the lists of children, and the way back to the database object.

    Shared by all of them and destroyed with the last, so that a child can use it for its whole life, even
    while the database is being destroyed or after that. Threads: the engine lock guards the lists, the
    connection mutex the connection, which is taken last; everything else may be called from any thread. */
class DatabaseLink : nbx::noncopyable {
  public:
    /** `owner` counts its references here. */
    DatabaseLink(nbx::mrsql::I_DuckDBDatabase& owner, nbx::smart_ptr<nbx::I_Location> location);

    // The database's reference count. It is here, where it outlives the database, so that a child can see
    // that the last reference is gone: it falls to 0 before the destruction begins.

    uint32_t AddReference() noexcept { return references_.fetch_add(1, std::memory_order_relaxed) + 1; }
    /** The caller destroys the database at 0. */
    uint32_t ReleaseReference() noexcept { return references_.fetch_sub(1, std::memory_order_acq_rel) - 1; }
    uint32_t get_ReferenceCount() const noexcept { return references_.load(std::memory_order_acquire); }
    /** The database, or null once its last reference is gone. From any thread, with or without the engine
        lock. */
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> get_Database() noexcept;
    /** The database is being destroyed. A child that was taken out of the lists and lives on must not reach
        it. */
    void Orphan() noexcept { is_orphaned_.store(true); }
    bool get_IsOrphaned() const noexcept { return is_orphaned_.load(); }

    const nbx::smart_ptr<nbx::I_Location>& get_Location() const noexcept { return location_; }
    ChildLists& get_Children() noexcept { return children_; }
    /** What appenders are storing. */
    ExportGate& get_Appends() noexcept { return appends_; }
    /** The database's entry, listed while it is open. */
    CensusEntry& get_Census() noexcept { return census_; }
    /** In milliseconds; 0 for none. */
    uint64_t get_TimeLimit() const noexcept { return time_limit_.load(); }
    void put_TimeLimit(uint64_t milliseconds) noexcept { time_limit_.store(milliseconds); }

    void put_IsTracked(bool is_tracked) noexcept { connection_.put_IsTracked(is_tracked); }
    bool get_IsTracked() const noexcept { return connection_.get_IsTracked(); }
    nbx::mrsql::DuckDBProgress get_Progress() const;

    /** The connection, or null when the database is closed. */
    SharedConnection get_Connection() const { return connection_.get(); }
    /** Throws "DuckDBDatabase is not open" unless there is a connection. */
    SharedConnection RequireConnection() const;
    void ReplaceConnection(SharedConnection connection) noexcept {
        connection_.Replace(std::move(connection));
    }
    void Disconnect() noexcept { connection_.Disconnect(); }

    /** Interrupts what runs on the connection and on the side connections. */
    void Interrupt();
    /** Throws `xInterruptError` when there was an interrupt since it was cleared or reported, and
       `xDuckDBError` when the time limit has cut the operation that runs. */
    void ThrowIfInterrupted();
    /** Ends the transaction that may be open, which no time limit cuts. */
    void Rollback() noexcept;
    /** As `InterruptibleConnection` prepares. */
    duckdb_state Prepare(duckdb_connection connection, const std::string& sql,
                         duckdb_prepared_statement* out_prepared) {
        return connection_.Prepare(connection, sql, out_prepared);
    }
    duckdb_state PrepareExtracted(duckdb_connection connection, duckdb_extracted_statements extracted,
                                  idx_t index, duckdb_prepared_statement* out_prepared) {
        return connection_.PrepareExtracted(connection, extracted, index, out_prepared);
    }
    /** The result is compact if the database, or the script of so many statements, keeps many. Throws
       `xInterruptError` for an interrupt that came earlier in the call, while nothing ran that it could end.
     */
    duckdb_state ExecutePrepared(duckdb_prepared_statement prepared, duckdb_result* out_result,
                                 uint64_t statements = 1) NBX_REQUIRES(gEngineLock) {
        ThrowIfInterrupted();
        const duckdb_state state = connection_.ExecutePrepared(prepared, out_result);
        if (children_.CountResults() + statements > kFewResults) {
            duckdb_compact_result(out_result);
        }
        return state;
    }

    /** Adds a connection that interrupts reach until it is removed. */
    void AddSide(InterruptibleConnection& connection);
    void RemoveSide(InterruptibleConnection& connection) noexcept;

    /** The path that errors name. */
    nbx::String get_ErrorPath() const { return location_->get_Text(); }
    /** Throws `xDuckDBError` with the database's path and a UTF-8 message. */
    [[noreturn]] void ThrowError(std::string_view message) const;
    /** The same for an error of DuckDB, but an interrupt wins over the error that it caused. */
    [[noreturn]] void ThrowFailure(const Failure& failure);
    /** SQL text as UTF-8. Throws for a text with a NUL character: DuckDB would run only the part before
        it. */
    std::string ToSql(const nbx::String& sql) const;

  private:
    friend class Operation;

    /** So many small results may each keep a block of the buffer manager, which is faster. */
    static constexpr uint64_t kFewResults = 32;

    nbx::mrsql::I_DuckDBDatabase& owner_;
    const nbx::smart_ptr<nbx::I_Location> location_;
    CensusEntry census_;
    std::atomic<uint32_t> references_{0};
    std::atomic<bool> is_orphaned_{false};
    Operation* operation_ NBX_GUARDED_BY(gEngineLock) = nullptr;
    std::atomic<uint64_t> time_limit_{0};

    InterruptibleConnection connection_;
    nbx::Mutex sides_mutex_;
    ChildList<InterruptibleConnection> sides_ NBX_GUARDED_BY(sides_mutex_);

    ChildLists children_;
    ExportGate appends_;
};

using SharedLink = std::shared_ptr<DatabaseLink>;

/** A child's tie to its database. The child keeps the link for its whole life, even after it has released the
   database, since its destructor must remove it from the database's list. From any thread. */
class DatabaseTie : nbx::noncopyable {
  public:
    explicit DatabaseTie(SharedLink link) : link_(std::move(link)) {}

    /** Releases the database. */
    void Cut() noexcept { is_cut_.store(true); }
    /** The link, or null when the child has lost its database. */
    DatabaseLink* get() const noexcept {
        return is_cut_.load() || link_->get_IsOrphaned() ? nullptr : link_.get();
    }
    /** The database, or null when the child has lost it. */
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> get_Database() const noexcept {
        return is_cut_.load() ? nullptr : link_->get_Database();
    }
    const SharedLink& get_Link() const noexcept { return link_; }
    ChildLists& get_Siblings() const noexcept { return link_->get_Children(); }

  private:
    const SharedLink link_;
    std::atomic<bool> is_cut_{false};
};

}  // namespace mduckdb
