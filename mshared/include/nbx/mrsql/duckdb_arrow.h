#pragma once

#include <cstdint>

#include "nbx/arrow_c_data.h"
#include "nbx/export.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBArrow` for `QueryInterface` of a cursor and of a query result. */
constexpr uint32_t kDuckDBArrowInterfaceId = 7331;

/** Exports rows as an Arrow C stream, for readers such as pyarrow, without creating a value per field.

    The stream has the rows after the current record: all rows of a new cursor, and never one that was read.
    Each of its arrays is a struct with a child for each column, and outlives the stream, the cursor and the
    database. DuckDB converts the rows without loss (its setting `arrow_lossless_conversion`); a VARIANT, also
    inside a nested type, becomes its JSON text. DuckDB's other settings of the connection apply as they are
    when the stream is exported.

    A server cursor and the cursor of an `I_DuckDBStreaming` hand their rows over: afterwards they have no
    current record, and `NextRecord` and a further export throw. A client cursor reads its rows again for each
    stream; it stays where it is and can be exported again. A query result exports the rows of its cursor.

    The stream holds a reference to the cursor, so the host may release the cursor, the result and the
    database. Closing ends the stream: `Close` of the cursor, of the query result that exported it, or of the
    database, also by its last release. After that, `get_next` fails with EIO and a text. It fails with ENOMEM
    when memory runs out, and may be called again; with ECANCELED after `Interrupt` of a cursor that streams;
    with EIO and DuckDB's text otherwise.

    The calls of one stream come one after the other, on any thread, while the cursor is used on another. They
    do not take the host's engine lock, except `release`, which may destroy the cursor. */
class NBX_API I_DuckDBArrow {
  public:
    virtual ~I_DuckDBArrow();
    /** Fills `stream`, which must not hold a stream that is not released; the caller releases it. Unchanged
        by a failure. Throws `xDuckDBError` if the object is closed, if a cursor has handed its rows over
        before, if a query result has no rows, or if DuckDB cannot export a column's type. Takes the engine
        lock. */
    virtual void ExportStream(ArrowArrayStream& stream) = 0;
};

}  // namespace nbx::mrsql
