#pragma once

#include <duckdb.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/error_facts.h"
#include "base/holders.h"
#include "duckdb_internals/chunk_rows.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "objects/side_connection.h"

namespace mduckdb {

/** DuckDB's appender; destroying it stores nothing. */
struct AppenderTraits {
    using Handle = duckdb_appender;
    static void Destroy(Handle handle) noexcept {
        // DuckDB would store what is left, and report no failure.
        duckdb_appender_clear(handle);
        duckdb_appender_destroy(&handle);
    }
};
using AppenderHolder = Holder<AppenderTraits>;

/** Rows on their way into one table, on a connection of their own: collected in chunks, stored in
    transactions. The database must not close while it exists. Not for two threads at once, except
    `get_Interruptible`. */
class TableAppender : nbx::noncopyable {
  public:
    /** Connects. */
    TableAppender(const SharedLink& link, SharedEngine engine) : connection_(link, std::move(engine)) {}
    ~TableAppender();
    /** Before anything else, and only once. Throws `xDuckDBError` if there is no such table or column. */
    void Open(const DatabaseLink& link, const nbx::mrsql::DuckDBAppenderOptions& options);

    const std::vector<nbx::String>& get_Names() const noexcept { return names_; }
    ChunkRows& get_Rows() noexcept { return *rows_; }
    InterruptibleConnection& get_Interruptible() noexcept { return connection_.get_Interruptible(); }

    /** Stores the collected rows in the transaction, which begins now if there is none. False and DuckDB's
        error on failure; then the transaction must be rolled back. The collected rows stay. */
    bool Store(Failure& error);
    /** Stores rows of arrays that `RefuseArray` does not refuse in the transaction, while nothing is
        collected; fewer than `count` if they take much memory. `passed` is how many, also on failure: those
        that were read until then, at least one. After a failure the transaction must be rolled back and the
        collected rows cleared. Throws `std::bad_alloc`. */
    bool StoreArrays(const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first, idx_t count,
                     idx_t& passed);
    // No interrupt reaches these two: the outcome would be unknown.
    bool Commit(Failure& error);
    void Rollback() noexcept;
    /** `Commit` threw, and the rows may be stored. */
    bool get_IsOutcomeUnknown() const noexcept { return is_outcome_unknown_; }

    /** After `Store` failed and was rolled back: the first of the collected rows that DuckDB does not store,
        counted from 1, and DuckDB's error for it. 0 if that is unknown, or an interrupt came; the error is
        unchanged then. Stores nothing. Throws `std::bad_alloc`. */
    uint64_t FindFailingRow(Failure& error);

  private:
    void AddColumns(const DatabaseLink& link, const nbx::mrsql::DuckDBAppenderOptions& options);
    void AddEveryColumn(const std::string& catalog, const std::string& schema, const std::string& table);
    bool Run(const char* sql, Failure& error);
    bool StoreFirst(idx_t count, Failure& error);
    /** Passes up to a chunk of rows to DuckDB's appender; returns how many, 0 on failure. */
    idx_t PassArrays(const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first, idx_t count);
    bool Begin(Failure& error);

    SideConnection connection_;
    AppenderHolder appender_;
    std::vector<nbx::String> names_;
    std::unique_ptr<ChunkRows> rows_;
    bool is_outcome_unknown_ = false;
    /** Of the last rows that could not be stored. */
    duckdb_error_type last_failure_ = DUCKDB_ERROR_INVALID;
};

}  // namespace mduckdb
