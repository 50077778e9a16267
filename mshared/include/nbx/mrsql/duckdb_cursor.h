#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx::mrsql {

class I_DuckDBDatabase;

/** Cursor locations. A client cursor reads all rows at once and keeps them in the host's memory; a server
    cursor reads them from DuckDB as it moves. Every number but 1 means the server. */
constexpr uint32_t kClientCursor = 1;
constexpr uint32_t kServerCursor = 2;

/** Numbers of the interfaces that a cursor offers through `QueryInterface`. */
enum DuckDBCursorInterfaceId : uint32_t {
    kDuckDBCursorInterfaceId = 7250,
    kFetchStatusInterfaceId = 7251,
    kExactDecimalsInterfaceId = 7252,
};

/** Distinguishes the end of a cursor's rows from a failure to read them, which `NextRecord` does not report.
    A part of the cursor: valid as long as a reference to the cursor is held. A client cursor reads its rows
    when it is created, so it may report a failure from the start. */
class I_FetchStatus {
  public:
    virtual ~I_FetchStatus() = default;
    /** DuckDB's text of the failure that ended the rows; empty if nothing failed. The reference is valid as
        long as the cursor. */
    virtual const String& get_FetchError() const = 0;
};

/** The digits of DECIMAL fields, whose host values are doubles and so have about 16 digits. A part of the
    cursor: valid as long as a reference to the cursor is held. */
class I_ExactDecimals {
  public:
    virtual ~I_ExactDecimals() = default;
    /** DuckDB's text of a DECIMAL field of the current record, such as 123456789012345678.123. Empty for
       NULL, for a column of another type, for a number that the type does not allow, and if DuckDB computed
       the rows while a client cursor read them. Throws like `get_Value`. A client cursor reads the rows a
       second time for it, from the record that was asked for last; asking backwards begins at the first row.
     */
    virtual String get_DecimalText(uint32_t column_index) = 0;
};

/** The rows of one query result. Column indexes count from 0, records from 1.

    A new cursor is positioned before the first row. A client cursor moves in both directions; a server cursor
    moves forward with `NextRecord` only, and its other positioning operations throw `xDuckDBError`.

    After `Close`, `Detach` or the closing of the database the column operations still work and `get_Database`
    returns null; the others throw `xDuckDBError` "DuckDBCursor is invalid". A cursor is for one thread at a
    time, but the database may close on another thread, so operations that use DuckDB take the engine
    lock. */
class NBX_API I_DuckDBCursor : public I_Unknown {
  public:
    I_DuckDBCursor() = default;
    ~I_DuckDBCursor() override;

    /** Never changes, and works on a closed cursor, like all column operations. */
    virtual uint32_t get_ColumnCount() const = 0;
    /** Empty if there is no such column. The reference is valid as long as the cursor. */
    virtual const String& get_ColumnName(uint32_t column_index) const = 0;
    /** DuckDB's text of the type, such as DECIMAL(18,3); empty if there is no such column. The reference is
        valid as long as the cursor. */
    virtual const String& get_ColumnTypeName(uint32_t column_index) const = 0;
    /** The `duckdb_type` code; 0 if there is no such column. */
    virtual uint32_t get_ColumnType(uint32_t column_index) const = 0;
    /** Number of rows. Client cursors only. */
    virtual uint32_t get_RecordCount() = 0;
    /** The number of the current record; 0 before the first move. Client cursors only. */
    virtual uint32_t get_CurrentRecord() = 0;
    /** Moves to the record. Returns false, without moving, if there is no such record. Client cursors
        only. */
    virtual bool put_CurrentRecord(uint32_t record) = 0;
    /** The database, with a reference for the caller; null if the cursor has lost it or it is being
        destroyed. */
    virtual smart_ptr<I_DuckDBDatabase> get_Database() = 0;
    /** Releases DuckDB's result. Values that were read stay valid. Can be repeated. */
    virtual void Close() = 0;
    /** Return false if there are no rows. Client cursors only. */
    virtual bool FirstRecord() = 0;
    virtual bool LastRecord() = 0;
    /** Moves to the next row. Returns false at the end of the rows; then a client cursor stays on its last
        row, and a server cursor has no current row and cannot be moved again. A server cursor also returns
        false if DuckDB fails to compute the rows; `I_FetchStatus` distinguishes the two. Throws
        `xDuckDBError` if spilled rows cannot be read back. */
    virtual bool NextRecord() = 0;
    /** Returns false, without moving, on the first row and before it. Client cursors only. */
    virtual bool PrevRecord() = 0;
    /** The field of the current record: never a null pointer, a null value for NULL. The value outlives the
        cursor. A client cursor returns the same object each time, which its row set shares; a server cursor
        creates a new one. Throws `xDuckDBError` if there is no current record or no such column. */
    virtual smart_ptr<I_Value> get_Value(uint32_t column_index) = 0;
    /** Releases the result and leaves the database; the database calls it when it closes. The caller holds
        the engine lock. */
    virtual void Detach() = 0;
};

}  // namespace nbx::mrsql
