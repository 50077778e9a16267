#pragma once

#include <cstdint>

#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/unknown.h"

namespace nbx::mrsql {

/** Numbers of the interfaces below for `QueryInterface`. */
constexpr uint32_t kDuckDBWrittenStatementsInterfaceId = 7320;
constexpr uint32_t kDuckDBTransactionStateInterfaceId = 7321;

/** Part of a statement object: runs the statements of the text as they were written.

    DuckDB expands some statements into several pieces: `ALTER TABLE t ADD COLUMN d TIMESTAMP DEFAULT now()`
    and `COPY FROM DATABASE` into `BEGIN; ...; COMMIT`, a PIVOT without IN into `CREATE TYPE ...; SELECT ...`.
    A host that prepares and executes once has run only the first piece. These calls run all pieces of a
    written statement. When one fails and no transaction was open before, the transaction that DuckDB opened
    is rolled back. */
class I_DuckDBWrittenStatements {
  public:
    virtual ~I_DuckDBWrittenStatements() = default;

    /** How many pieces of the next written statement have not been prepared; 1 for most statements, 0 after
       the last one. */
    virtual uint64_t get_PieceCount() = 0;
    /** Prepares and executes the next written statement with the stored parameters. Returns whether there are
        more; `rows_changed` is the sum over the pieces, as in `SqlExecute`. */
    virtual bool ExecuteNextWritten(int64_t& rows_changed) = 0;
    /** The same for a statement that returns rows. Returns a cursor over the rows of its last piece. */
    virtual smart_ptr<I_DuckDBCursor> OpenNextWritten(uint32_t cursor_location) = 0;
};

/** Part of a database object: shows whether its connection has work that is not committed yet. */
class I_DuckDBTransactionState {
  public:
    virtual ~I_DuckDBTransactionState() = default;

    /** Whether a transaction is open on the connection; its changes are lost when the database closes. */
    virtual bool get_IsInTransaction() = 0;
    /** How often this object was closed, by any call, while a transaction was open, which closing rolled
        back. */
    virtual uint64_t get_LostTransactionCount() = 0;
};

}  // namespace nbx::mrsql
