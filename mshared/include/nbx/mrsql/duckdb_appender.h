#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBAppenders` for `QueryInterface` of a database. */
constexpr uint32_t kDuckDBAppendersInterfaceId = 7330;

/** Where an appender stores rows, and how. */
struct DuckDBAppenderOptions {
    /** Of an attached database; empty for the database itself. */
    String catalog;
    /** Empty for the default schema. */
    String schema;
    String table;
    /** The columns that rows have, in this order; the others get their defaults. Null for all columns of the
        table that are not generated. */
    const String* columns = nullptr;
    uint32_t column_count = 0;
    /** True: nothing is stored before `Commit` or `Close`, then everything at once. False: each flush is
        a transaction of its own. */
    bool in_one_transaction = false;
};

/** The bytes of one text, BLOB or BIT in a column array. */
struct DuckDBBytes {
    const char* data;
    uint64_t length;
};

/** One column of rows as a plain array. */
struct DuckDBColumnArray {
    /** The type of the elements, a `DUCKDB_TYPE` number of DuckDB's C API. It need not be the column's type:
        DuckDB casts, texts for example to ENUM, BIGNUM or JSON. Types without parts, and DECIMAL; no BIGNUM,
        ENUM, LIST, STRUCT and the like. */
    uint32_t type;
    /** Elements as in a vector of DuckDB: a `bool` for BOOLEAN, days in an `int32_t` for DATE, microseconds
        in an `int64_t` for TIME and TIMESTAMP, 16 bytes with the lower half first for HUGEINT, and so on.
        A DECIMAL has 2 bytes up to a width of 4, 4 up to 9, 8 up to 18, otherwise 16. VARCHAR, BLOB and BIT
       are `DuckDBBytes`. Copied during the call. */
    const void* data;
    /** Bit `i % 64` of word `i / 64` is 1 if element i is not NULL. Null: no element is NULL. */
    const uint64_t* validity = nullptr;
    /** Of a DECIMAL. */
    uint8_t width = 0;
    uint8_t scale = 0;
};

/** Stores many rows in a table, many times faster than rows of parameters.

    Rows are collected and flushed into the table in blocks; `Flush`, `Commit` and `Close` store what has been
    collected. The appender has a connection of its own: it does not see temporary tables, settings and
    uncommitted changes of the database object, and statements of the object see its rows once they are
    committed.

    Errors are `xDuckDBError` 0x72501. A value that its column does not accept fails its own row, which the
    error names with the column; the appender and the rows before it stay as they were. When a flush or a
    commit fails, nothing of it is stored: all pending rows are discarded, the error names the row if it can
    be found, and the appender stays usable. `xInterruptError` after `Interrupt` of the database during a
    flush, and a time limit of the database, do the same. `std::bad_alloc` leaves the pending rows as they
    were, but if a transaction had flushed some of them, it discards all.

    Threads: any; calls take turns. Nothing holds the engine lock while DuckDB works; `Close` and the last
    `Release` take it for a moment. The appender holds no reference to its database: when that closes, pending
    rows are discarded and calls throw "DuckDBAppender is invalid". The last `Release` discards pending rows
    too: call `Close` before. */
class NBX_API I_DuckDBAppender : public I_Unknown {
  public:
    I_DuckDBAppender() = default;
    ~I_DuckDBAppender() override;

    /** The columns that rows have. From any thread, also after `Close`. */
    virtual uint32_t get_ColumnCount() const = 0;
    /** An empty text if there is no such column; counted from 0. */
    virtual const String& get_ColumnName(uint32_t column_index) const = 0;
    /** Null once the last reference to the database is released, and after `Close`. */
    virtual smart_ptr<I_DuckDBDatabase> get_Database() = 0;

    /** Appends one row, whose values become what they would become as parameters of an INSERT. A null pointer
        and a null value become NULL. The row is not kept. If enough rows are collected they are flushed
       first; when that fails, this row is not appended. */
    virtual void AppendRow(smart_ptr<ValueRow> row) = 0;
    /** `AppendRow` for each row. Rows before a failing one are appended. */
    virtual void AppendRows(smart_ptr<ValueRows> rows) = 0;
    /** Appends `row_count` rows, given as an array for each column. Rows before a failing one are
        appended. */
    virtual void AppendColumns(const DuckDBColumnArray* columns, uint32_t column_count,
                               uint64_t row_count) = 0;

    /** Stores the collected rows; commits them unless everything is one transaction. */
    virtual void Flush() = 0;
    /** Stores and commits all pending rows. The appender can be used on. */
    virtual void Commit() = 0;
    /** Discards all pending rows. The appender can be used on. */
    virtual void Rollback() = 0;
    /** `Commit`, then releases connection and database, even if the commit fails, but not after
        `std::bad_alloc`. Does nothing if the appender is closed already. */
    virtual void Close() = 0;

    // From any thread, without waiting.

    /** The rows appended so far; errors count rows in the same way, from 1. */
    virtual uint64_t get_RowCount() const = 0;
    /** The rows committed so far. */
    virtual uint64_t get_StoredRowCount() const = 0;
    /** The rows appended, but neither committed nor discarded. */
    virtual uint64_t get_PendingRowCount() const = 0;
};

/** Part of a database object: creates appenders. */
class NBX_API I_DuckDBAppenders {
  public:
    virtual ~I_DuckDBAppenders();
    /** Throws `xDuckDBError` if the database is not open or there is no such table or column. The caller owns
        the reference. */
    virtual smart_ptr<I_DuckDBAppender> CreateAppender(const DuckDBAppenderOptions& options) = 0;
};

}  // namespace nbx::mrsql
