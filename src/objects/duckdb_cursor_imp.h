#pragma once

#include <duckdb.h>

#include <atomic>
#include <boost/container/small_vector.hpp>
#include <list>

#include "base/engine_lock.h"
#include "base/holders.h"
#include "duckdb_internals/managed_results.h"
#include "nbx/foreign_plugin.h"
#include "nbx/mrsql/duckdb_arrow.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "objects/database_link.h"

namespace mduckdb {

/** The failure that ended a cursor's rows. */
class FetchStatus final : public nbx::mrsql::I_FetchStatus {
  public:
    const nbx::String& get_FetchError() const override { return error_; }
    /** Keeps the error of the result, if it has one and none was kept before: another fetch after a failure
        replaces it with a useless text. */
    void KeepErrorOf(duckdb_result* result);

  private:
    nbx::String error_;
};

class DuckDBCursor_imp;

/** The exact texts of a cursor's DECIMALs. The cursor owns it. */
class ExactDecimals final : public nbx::mrsql::I_ExactDecimals {
  public:
    explicit ExactDecimals(DuckDBCursor_imp& cursor) : cursor_(cursor) {}
    nbx::String get_DecimalText(uint32_t column_index) override;

  private:
    DuckDBCursor_imp& cursor_;
};

/** Exports the rest of a cursor's rows. The cursor owns it. */
class ArrowExport final : public nbx::mrsql::I_DuckDBArrow {
  public:
    explicit ArrowExport(DuckDBCursor_imp& cursor) : cursor_(cursor) {}
    void ExportStream(ArrowArrayStream& stream) override;

  private:
    DuckDBCursor_imp& cursor_;
};

/** What both kinds of cursor have in common: the result, its description, and the way to the database.

    The cursor owns the result until it is closed, detached or destroyed; it is valid until the first of them.
    It is in the database's list from construction to destruction, even if it was closed in between. The
    description can always be read. Everything that changes the result or releases the database happens under
    the engine lock. */
class DuckDBCursor_imp : public nbx::Counted<nbx::mrsql::I_DuckDBCursor>, public nbx::ForeignPlugin_imp {
  public:
    ~DuckDBCursor_imp() override;

    uint32_t Release() override;
    void* QueryInterface(uint32_t interface_id) override;

    uint32_t get_ColumnCount() const override { return static_cast<uint32_t>(column_names_.size()); }
    const nbx::String& get_ColumnName(uint32_t column_index) const override;
    const nbx::String& get_ColumnTypeName(uint32_t column_index) const override;
    uint32_t get_ColumnType(uint32_t column_index) const override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> get_Database() override { return tie_.get_Database(); }
    void Close() override;
    void Detach() override NBX_NO_THREAD_SAFETY_ANALYSIS;  // the caller holds the lock

  protected:
    /** Reads the description. The most derived class then takes the result: a construction that fails leaves
        it with the caller. */
    DuckDBCursor_imp(SharedLink link, ResultHolder& result);
    /** For a result that follows; until then the cursor is invalid. The most derived class joins the
        siblings. */
    explicit DuckDBCursor_imp(SharedLink link);
    /** From here on a database that closes on another thread calls `Detach`. Called by the constructor of the
        most derived class, whose virtual functions are then those of the object. Throws "DuckDBCursor is
        invalid" if the database is being destroyed. */
    void JoinSiblings();
    /** Undoes it before the destruction begins, or before a constructor throws: `Detach` must not meet a half
        destroyed object. Releases the result. May be called twice. */
    void LeaveSiblings() noexcept;
    /** Takes the result that `start` returns, and reads its description. `start` runs under the mutex of the
       result, so that `Close` and `Detach` wait for it. No other thread may know the cursor but through its
       database. */
    template <class Start>
    void StartResult(Start&& start) {
        const nbx::MutexLock lock(result_mutex_);
        result_ = start();
        ReadDescription(result_.get());
        has_result_.store(true);
    }
    /** Joins the siblings with the result. Strong guarantee. */
    void TakeResult(ResultHolder& result);
    void GiveBackResult(ResultHolder& result) noexcept;

    /** Called for each field of rows that the cursor has fetched and that depend on nothing else. A database
        that is closed lets its cursors release their results. */
    bool get_HasResult() const noexcept { return has_result_.load(); }
    /** For what needs the database or the result. A cursor that has cut its tie has released its result too.
     */
    bool get_IsValid() const noexcept { return get_HasResult() && !tie_.get_Link()->get_IsOrphaned(); }
    /** Throws "DuckDBCursor is invalid" unless the cursor has its database and its result. */
    void RequireValid() const {
        if (!get_IsValid()) {
            ThrowInvalid();
        }
    }
    /** Throws "inColumnIndex is out of bounds". The cursor is valid. */
    void RequireColumn(uint32_t column_index) const {
        if (column_index >= column_types_.size()) {
            ThrowError("inColumnIndex is out of bounds");
        }
    }
    [[noreturn]] static void ThrowInvalid();
    /** Throws with the path of the cursor's database. */
    [[noreturn]] void ThrowError(const char* message) const;
    /** The next rows, or null at the end of the rows and after a failure of a result that is computed while
        it is read, whose text is kept. Throws when computed rows cannot be read, and when the result was
        released. The caller owns the chunk, which depends neither on the cursor nor on the engine. */
    ChunkHolder FetchChunk() { return FetchChunk(scan_); }
    /** The same for a reader of its own, which begins at the first row; null at once for rows that DuckDB
        computed while they were fetched. */
    ChunkHolder FetchChunkAgain(bool is_from_first_row);

    /** Where DuckDB holds the current record. */
    struct RecordPlace {
        /** Null if DuckDB no longer holds it. */
        duckdb_data_chunk chunk;
        idx_t row;
    };
    /** Throws if there is no current record. The cursor is valid. */
    virtual RecordPlace FindRecord() = 0;

    /** Where the rows after the current record begin. */
    struct ArrowStart {
        /** Those of them that were fetched, or null. */
        ChunkHolder rows;
        /** Whether the others are fetched by a scan of their own from the first row on, past so many rows,
            or where the cursor's own scan is. */
        bool is_from_first_row = false;
        uint64_t passed_rows = 0;
    };
    /** Changes nothing. The cursor is valid. Throws if its rows cannot be exported. */
    virtual ArrowStart FindArrowStart() = 0;
    /** A stream has the rows from now on, unless it reads them by a scan of its own. */
    virtual void HandOverRows() noexcept {}

    /** Whose memory the rows of a chunk are in. The result's are not to be changed, and there until its scan
        goes on or the result is released. */
    enum class RowsAre : bool { own, of_result };
    /** What `FetchChunk` does under the mutex of the result, which is there. */
    virtual ChunkHolder ReadChunk(ResultScanHolder& scan, RowsAre rows);
    /** The next rows, under the same mutex; null at their end and after a failure, whose text it gives or
     * keeps. */
    ChunkHolder ScanChunk(ResultScanHolder& scan, RowsAre rows, TextHolder& error);
    /** A release of the result is about to wait for what runs on it, under the engine lock. */
    virtual void StopReading() noexcept {}
    /** The result is gone; under its mutex and the engine lock. */
    virtual void ReleaseConnection() noexcept {}
    const nbx::String& get_FetchError() const noexcept { return fetch_status_.get_FetchError(); }
    /** 0 when DuckDB has not computed them yet. */
    uint64_t CountComputedRows();

    DatabaseTie tie_;
    CensusEntry census_;

  private:
    friend class ExactDecimals;
    friend class ArrowExport;
    class ArrowReader;

    void ExportArrowStream(ArrowArrayStream& stream);
    ResultScanHolder& AddArrowScan();
    void RemoveArrowScan(const ResultScanHolder& scan) noexcept;

    ChunkHolder FetchChunk(ResultScanHolder& scan);
    static constexpr std::size_t kInlineNames = 10;
    static constexpr std::size_t kInlineTypes = 12;
    using Names = boost::container::small_vector<nbx::String, kInlineNames>;

    void ReadDescription(duckdb_result* result);
    /** Called before the engine closes, since its memory holds the rows. Waits for a chunk that is being
       fetched. May run while other threads read fields. */
    void ReleaseResult() noexcept;

    Names column_names_;
    Names column_type_names_;
    boost::container::small_vector<uint32_t, kInlineTypes> column_types_;
    FetchStatus fetch_status_;
    ExactDecimals exact_decimals_{*this};
    ArrowExport arrow_export_{*this};
    /** A client cursor reads its rows without the engine lock: this one, taken after it, keeps the result in
        place for one chunk. */
    nbx::Mutex result_mutex_;
    ResultHolder result_;
    ResultScanHolder scan_;
    /** For `FetchChunkAgain`. */
    ResultScanHolder second_scan_;
    /** Of the Arrow streams that have their own; empty once the result is released. */
    std::list<ResultScanHolder> arrow_scans_;
    /** Whether there is a result, for the calls that take no lock. */
    std::atomic<bool> has_result_{false};
};

}  // namespace mduckdb
