#pragma once

#include <duckdb.h>

#include "base/holders.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "objects/database_link.h"

namespace mduckdb {

/** Creates a cursor of the kind that the location asks for over a result that returns rows: 1 creates a
    `DuckDBCursor_client`, every other number a `DuckDBCursor_server`. Takes ownership of the result unless it
    throws. The cursor is complete before a database that closes on another thread can reach it. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> MakeCursor(SharedLink link, ResultHolder& result,
                                                      uint32_t cursor_location);

/** The rows of a client cursor, or null for a null cursor and for any other kind. */
nbx::smart_ptr<nbx::ValueRows> GetClientCursorRows(nbx::mrsql::I_DuckDBCursor* cursor);
bool IsClientCursor(nbx::mrsql::I_DuckDBCursor* cursor);

}  // namespace mduckdb
