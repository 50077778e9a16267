#pragma once

#include <duckdb.h>

#include "nbx/mrsql/duckdb_cursor.h"
#include "objects/database_link.h"

namespace mduckdb {

/** Makes a cursor of the kind that the location asks for over a result that returns rows: 1 makes a
    `DuckDBCursor_client`, every other number a `DuckDBCursor_server`. Takes the result over at once, also
    when it throws. The caller holds the engine lock; while a client cursor reads the rows, nobody needs it.
 */
nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> MakeCursor(SharedLink link, duckdb_result result,
                                                      uint32_t cursor_location);

/** The rows of a client cursor, or null when it is no client cursor (or null). */
nbx::smart_ptr<nbx::ValueRows> GetClientCursorRows(nbx::mrsql::I_DuckDBCursor* cursor);
bool IsClientCursor(nbx::mrsql::I_DuckDBCursor* cursor);

}  // namespace mduckdb
