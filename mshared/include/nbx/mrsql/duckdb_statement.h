#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx::mrsql {

/** Outcome of `TryExecuteAll`. */
struct DuckDBExecutionResult {
    /** Statements that ran without an error. */
    uint32_t statements_executed = 0;
    /** 0 if no statement failed. */
    uint32_t error_code = 0;
    /** Empty if no statement failed. */
    String error_message;
};

/** SQL text of one or several statements, prepared and executed one after the other on the connection
    of the database that made it. Parameters count from 1.

    A bind for one parameter (`BindNull` to `BindValue`) applies to the statement that is currently prepared;
    if there is none it does nothing. It removes the values of `put_Parameters` and `put_ParameterRows`, which
    are bound again at every preparation and execution.

    Errors are `xDuckDBError`, with the text "DuckDBDatabase is invalid" after the database has closed, and
    `xInterruptError` after `I_DuckDBDatabase::Interrupt`. A statement is for one thread at a time. Operations
    that use DuckDB take the engine lock. */
class NBX_API I_DuckDBStatement : public I_Unknown {
  public:
    I_DuckDBStatement() = default;
    ~I_DuckDBStatement() override;

    /** The whole text, unchanged. The reference is valid as long as the statement. */
    virtual const String& get_SqlText() const = 0;
    /** The text of the statement that was prepared last; the whole text before the first preparation and
        after a full run. The reference is valid as long as the statement, but the text changes. */
    virtual const String& get_CurrentSql() const = 0;
    /** The database, with a reference for the caller; null after `Detach` and while it is being destroyed. */
    virtual smart_ptr<I_DuckDBDatabase> get_Database() = 0;
    /** Statements of the text that have not been prepared yet; 0 before the first preparation. */
    virtual uint64_t get_PendingCount() = 0;
    /** Releases all DuckDB objects and leaves the database; the database calls it when it closes. */
    virtual void Detach() = 0;

    /** Prepares the next statement of the text, in place of the prepared one. After a failure the next call
        tries the same statement again. After the last statement it leaves nothing prepared. */
    virtual void PrepareNext() = 0;
    /** Prepares and executes the next statement. Returns whether more statements follow. `rows_changed` is
        the number of rows that it changed. */
    virtual bool ExecuteNext(int64_t& rows_changed) = 0;
    virtual bool ExecuteNext() = 0;
    /** Prepares and executes the statements that are left, all of them at first. Stops at the first error,
        which it throws; the statements before it stay executed. */
    virtual void ExecuteAll() = 0;
    /** Like `ExecuteAll`, but reports an error instead of throwing it. Releases the engine lock between two
        statements, so that other threads can use the engine. After the database has closed it executes
        nothing and reports no error. */
    virtual DuckDBExecutionResult TryExecuteAll() = 0;
    /** Removes all parameter values: those bound one by one, `put_Parameters` and `put_ParameterRows`. */
    virtual void ClearBindings() = 0;

    /** The typed binds. Each binds a value of the DuckDB type that it is named after. A value that the type
        does not allow, or an index without a parameter, throws `xDuckDBError` and leaves the other
        parameters bound. Numbers of 128 bits come in two halves, `lower` and `upper`, in two's complement. */
    virtual void BindNull(uint32_t index) = 0;
    virtual void BindBoolean(uint32_t index, bool value) = 0;
    virtual void BindTinyInt(uint32_t index, int8_t value) = 0;
    virtual void BindUTinyInt(uint32_t index, uint8_t value) = 0;
    virtual void BindSmallInt(uint32_t index, int16_t value) = 0;
    virtual void BindUSmallInt(uint32_t index, uint16_t value) = 0;
    virtual void BindInteger(uint32_t index, int32_t value) = 0;
    virtual void BindUInteger(uint32_t index, uint32_t value) = 0;
    virtual void BindBigInt(uint32_t index, int64_t value) = 0;
    virtual void BindUBigInt(uint32_t index, uint64_t value) = 0;
    virtual void BindHugeInt(uint32_t index, uint64_t lower, int64_t upper) = 0;
    virtual void BindUHugeInt(uint32_t index, uint64_t lower, uint64_t upper) = 0;
    /** `width` is the number of digits, `scale` how many of them follow the point; the number has no
        point. */
    virtual void BindDecimal(uint32_t index, uint8_t width, uint8_t scale, uint64_t lower, int64_t upper) = 0;
    virtual void BindFloat(uint32_t index, float value) = 0;
    virtual void BindDouble(uint32_t index, double value) = 0;
    /** Years count astronomically and may be negative; months and days count from 1. */
    virtual void BindDate(uint32_t index, int32_t year, int8_t month, int8_t day) = 0;
    /** Microseconds since midnight. */
    virtual void BindTime(uint32_t index, int64_t micros) = 0;
    /** Nanoseconds since midnight. */
    virtual void BindTimeNs(uint32_t index, int64_t nanos) = 0;
    /** Microseconds since midnight and the offset from UTC in seconds. */
    virtual void BindTimeTz(uint32_t index, int64_t micros, int32_t offset) = 0;
    /** Units since 1970-01-01 00:00:00: microseconds, or seconds, milliseconds and nanoseconds for `S`, `Ms`
        and `Ns`. `Tz` counts from that moment in UTC; the others have no time zone. */
    virtual void BindTimestamp(uint32_t index, int64_t micros) = 0;
    virtual void BindTimestampTz(uint32_t index, int64_t micros) = 0;
    virtual void BindTimestampS(uint32_t index, int64_t seconds) = 0;
    virtual void BindTimestampMs(uint32_t index, int64_t millis) = 0;
    virtual void BindTimestampNs(uint32_t index, int64_t nanos) = 0;
    /** The three parts are kept apart; DuckDB does not convert between them. */
    virtual void BindInterval(uint32_t index, int32_t months, int32_t days, int64_t micros) = 0;
    /** NUL characters are kept; a lone surrogate becomes U+FFFD. */
    virtual void BindVarchar(uint32_t index, const String& value) = 0;
    /** `length` is in bytes. `data` is copied during the call and may be null if `length` is 0; so in the
        next two binds. */
    virtual void BindBlob(uint32_t index, const void* data, uint64_t length) = 0;
    /** DuckDB's own form: a byte with the number of padding bits, then the bits. */
    virtual void BindBit(uint32_t index, const void* data, uint64_t length) = 0;
    /** The absolute value, most significant byte first. */
    virtual void BindBignum(uint32_t index, const void* data, uint64_t length, uint8_t is_negative) = 0;
    /** The UUID as a number of 128 bits: `upper` holds its first 16 hexadecimal digits. */
    virtual void BindUuid(uint32_t index, uint64_t lower, uint64_t upper) = 0;
    /** Binds a host value in the DuckDB type that belongs to its kind; a null pointer and a null value bind
        NULL. The content is copied during the call. */
    virtual void BindValue(uint32_t index, smart_ptr<I_Value> value) = 0;

    /** Binds element i of the row to parameter i + 1, now and at every further preparation and execution.
        Removes the parameter rows. The statement keeps a reference to the row, so changes of its values take
        effect at the next execution. Null removes the values. */
    virtual void put_Parameters(smart_ptr<ValueRow> values) = 0;
    /** Every execution runs the statement once for each row; without rows it does not run. Removes the
        parameters. The statement keeps a reference to the rows. Null removes them. */
    virtual void put_ParameterRows(smart_ptr<ValueRows> rows) = 0;
    /** Executes the prepared statement and returns the number of changed rows: those of the last parameter
        row if there are several, 0 if nothing is prepared. */
    virtual int64_t Execute() = 0;
    /** Executes the prepared statement and returns a cursor on its rows, with a reference for the caller.
        Null if nothing is prepared or there are parameter rows but none in them. Throws `xFeatureError`
        0xA000 for more than one parameter row. */
    virtual smart_ptr<I_DuckDBCursor> OpenCursor(uint32_t cursor_location) = 0;
    /** Executes the prepared statement and returns its rows as `CursorToJSON` does. */
    virtual String ExecuteToJSON() = 0;
    /** Executes the prepared statement and returns its outcome, never null; an empty one if nothing is
        prepared. The caller owns the reference. */
    virtual smart_ptr<I_DuckDBQueryResult> ExecuteToQueryResult(uint32_t cursor_location) = 0;
};

}  // namespace nbx::mrsql
