#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBStreaming` for `QueryInterface` of a database. */
constexpr uint32_t kDuckDBStreamingInterfaceId = 7332;

/** Reads the rows of a query while DuckDB computes them.

    The cursor that `OpenStream` returns moves forward only, like a server cursor, with the same values. Its
    first row is there as soon as DuckDB's buffer (its setting `streaming_buffer_size`) is full or the query
    has ended. DuckDB computes no further ahead, so that a result of any size needs little memory.

    The query runs on a connection and in a transaction of its own: it sees what was committed when it began,
   not the open transaction, the temporary tables, the settings and the `USE` of the database object's own
   connection. Neither `OpenStream` nor `NextRecord` of the cursor holds the host's engine lock while DuckDB
   works, so that other calls, of this object and of others, go on meanwhile, further streams included.

    `NextRecord` returns false only after the last row. If the query fails on the way, every further
   `NextRecord` throws: `xDuckDBError` with DuckDB's text, or with the text of the database's time limit
    (`I_DuckDBDeadlines`), which applies to `OpenStream` and to each `NextRecord` by itself; `xInterruptError`
   after `Interrupt` of the database, which ends all its streams. `Close` and `Drop` of the database end a
   stream and do not wait for its query. */
class NBX_API I_DuckDBStreaming {
  public:
    virtual ~I_DuckDBStreaming();
    /** Starts one SELECT, EXPLAIN or CALL, with the values for its parameters or null. Throws `xDuckDBError`,
       for any other statement before it has run, and `xInterruptError`. From any thread. */
    virtual smart_ptr<I_DuckDBCursor> OpenStream(const String& sql, smart_ptr<ValueRow> parameters) = 0;
};

}  // namespace nbx::mrsql
