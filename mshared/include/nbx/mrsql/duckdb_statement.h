#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx::mrsql {

/** Outcome of an execution that does not throw. */
struct DuckDBExecutionResult {
    /** Statements that ran without an error. */
    uint32_t statements_executed = 0;
    /** 0 when all went well. */
    uint32_t error_code = 0;
    /** Empty when all went well. */
    String error_message;
};

/** SQL text of one or several statements, prepared and executed one after the other on the connection
    of the database that made it. Parameters count from 1.

    A typed bind acts on the statement that is prepared now and is lost when there is none; it drops
    the values of `put_Parameters` and `put_ParameterRows`, which are bound anew at every preparation
    and execution. Errors are `xDuckDBError`; "DuckDBDatabase is invalid" once the database has closed. */
class NBX_API I_DuckDBStatement : public I_Unknown {
  public:
    I_DuckDBStatement() = default;
    ~I_DuckDBStatement() override;

    /** The whole text, as given. */
    virtual const String& get_SqlText() const = 0;
    /** The text of the statement prepared last; the whole text before the first and after a full run. */
    virtual const String& get_CurrentSql() const = 0;
    /** Null after `Detach`. */
    virtual smart_ptr<I_DuckDBDatabase> get_Database() = 0;
    /** Statements of the text that have not been prepared yet; 0 before the first preparation. */
    virtual uint64_t get_PendingCount() = 0;
    /** Gives up the database and everything of DuckDB's. */
    virtual void Detach() = 0;

    /** Prepares the next statement of the text. After a failure the same one is tried again. */
    virtual void PrepareNext() = 0;
    /** Prepares and executes the next statement; tells whether there are more. */
    virtual bool ExecuteNext(int64_t& rows_changed) = 0;
    virtual bool ExecuteNext() = 0;
    /** Runs all statements; stops at the first error. */
    virtual void ExecuteAll() = 0;
    /** Runs all statements and reports instead of throwing; lets other threads into the engine
        between two statements. */
    virtual DuckDBExecutionResult TryExecuteAll() = 0;
    virtual void ClearBindings() = 0;

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
    virtual void BindDecimal(uint32_t index, uint8_t width, uint8_t scale, uint64_t lower, int64_t upper) = 0;
    virtual void BindFloat(uint32_t index, float value) = 0;
    virtual void BindDouble(uint32_t index, double value) = 0;
    virtual void BindDate(uint32_t index, int32_t year, int8_t month, int8_t day) = 0;
    /** Microseconds since midnight. */
    virtual void BindTime(uint32_t index, int64_t micros) = 0;
    /** Nanoseconds since midnight. */
    virtual void BindTimeNs(uint32_t index, int64_t nanos) = 0;
    /** Microseconds since midnight and the offset from UTC in seconds. */
    virtual void BindTimeTz(uint32_t index, int64_t micros, int32_t offset) = 0;
    /** Microseconds since 1970-01-01. */
    virtual void BindTimestamp(uint32_t index, int64_t micros) = 0;
    virtual void BindTimestampTz(uint32_t index, int64_t micros) = 0;
    virtual void BindTimestampS(uint32_t index, int64_t seconds) = 0;
    virtual void BindTimestampMs(uint32_t index, int64_t millis) = 0;
    virtual void BindTimestampNs(uint32_t index, int64_t nanos) = 0;
    virtual void BindInterval(uint32_t index, int32_t months, int32_t days, int64_t micros) = 0;
    virtual void BindVarchar(uint32_t index, const String& value) = 0;
    /** `data` is copied during the call. */
    virtual void BindBlob(uint32_t index, const void* data, uint64_t length) = 0;
    /** DuckDB's own form: the number of padding bits, then the bits. */
    virtual void BindBit(uint32_t index, const void* data, uint64_t length) = 0;
    /** The absolute value, most significant byte first. */
    virtual void BindBignum(uint32_t index, const void* data, uint64_t length, uint8_t is_negative) = 0;
    virtual void BindUuid(uint32_t index, uint64_t lower, uint64_t upper) = 0;
    /** Binds a host value in the DuckDB type that belongs to its kind. */
    virtual void BindValue(uint32_t index, smart_ptr<I_Value> value) = 0;

    /** Binds element i of the row to parameter i + 1, now and at every further execution. */
    virtual void put_Parameters(smart_ptr<ValueRow> values) = 0;
    /** The statement is executed once for each row. */
    virtual void put_ParameterRows(smart_ptr<ValueRows> rows) = 0;
    /** Executes the prepared statement; gives the changed rows, of the last parameter row when there
        are several. */
    virtual int64_t Execute() = 0;
    /** Executes and opens a cursor; null when nothing is prepared. */
    virtual smart_ptr<I_DuckDBCursor> OpenCursor(uint32_t cursor_location) = 0;
    virtual String ExecuteToJSON() = 0;
    virtual smart_ptr<I_DuckDBQueryResult> ExecuteToQueryResult(uint32_t cursor_location) = 0;
};

}  // namespace nbx::mrsql
