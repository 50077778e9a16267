#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx::mrsql {

class I_DuckDBDatabase;

/** Cursor locations: who keeps the rows. Every number but 1 means the server. */
constexpr uint32_t kClientCursor = 1;
constexpr uint32_t kServerCursor = 2;

/** Numbers of the interfaces that a cursor offers through `QueryInterface`. */
enum DuckDBCursorInterfaceId : uint32_t {
    kDuckDBCursorInterfaceId = 7250,
    kFetchStatusInterfaceId = 7251,
};

/** Tells the end of a cursor's rows from a failure to read them, which `NextRecord` does not report. */
class I_FetchStatus {
  public:
    virtual ~I_FetchStatus() = default;
    /** DuckDB's text of the failure that ended the rows; empty when nothing failed. Good as long as the
        cursor. */
    virtual const String& get_FetchError() const = 0;
};

/** The rows of one query result. Column indexes count from 0, records from 1.

    A new cursor stands before the first row. A client cursor keeps all rows and moves freely; a server
    cursor goes forward with `NextRecord` only and refuses the other positioning operations with
    `xDuckDBError`. After `Close`, `Detach` or the closing of the database only the column operations
    answer; the others throw `xDuckDBError` "DuckDBCursor is invalid". For one thread at a time. */
class NBX_API I_DuckDBCursor : public I_Unknown {
  public:
    I_DuckDBCursor() = default;
    ~I_DuckDBCursor() override;

    virtual uint32_t get_ColumnCount() const = 0;
    /** Empty when there is no such column. Good as long as the cursor. */
    virtual const String& get_ColumnName(uint32_t column_index) const = 0;
    /** DuckDB's text of the type, as DECIMAL(18,3); empty when there is no such column. */
    virtual const String& get_ColumnTypeName(uint32_t column_index) const = 0;
    /** The `duckdb_type` code; 0 when there is no such column. */
    virtual uint32_t get_ColumnType(uint32_t column_index) const = 0;
    virtual uint32_t get_RecordCount() = 0;
    /** 0 when there is no current record. */
    virtual uint32_t get_CurrentRecord() = 0;
    /** False, and no move, when there is no such record. */
    virtual bool put_CurrentRecord(uint32_t record) = 0;
    /** Null when the cursor has lost its database. */
    virtual smart_ptr<I_DuckDBDatabase> get_Database() = 0;
    virtual void Close() = 0;
    virtual bool FirstRecord() = 0;
    virtual bool LastRecord() = 0;
    /** False at the end of the rows. */
    virtual bool NextRecord() = 0;
    virtual bool PrevRecord() = 0;
    /** The field of the current record; the value belongs to the caller's reference and outlives the
        cursor. */
    virtual smart_ptr<I_Value> get_Value(uint32_t column_index) = 0;
    /** Gives up the result and the database. The caller holds the engine lock. */
    virtual void Detach() = 0;
};

}  // namespace nbx::mrsql
