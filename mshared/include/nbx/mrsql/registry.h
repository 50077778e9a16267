#pragma once

#include "nbx/export.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_extension.h"
#include "nbx/string.h"
#include "nbx/unknown.h"

namespace nbx::mrsql {

/** Registers the process's provider of DuckDB, as a module does when it is loaded. It replaces the former
    one, which is released on this thread; a null pointer only removes it. Thread-safe. */
NBX_API void SetDuckDBExtension(smart_ptr<I_DuckDBExtension> extension);
/** The provider, or a null pointer if no module has registered one. The caller owns the reference.
    Thread-safe. */
NBX_API smart_ptr<I_DuckDBExtension> GetDuckDBExtension();

/** The rows after the cursor's current one as a JSON array with an object for each row, whose keys are the
    column names in order, equal ones included. Numbers, booleans and JSON values keep their form; infinities,
    NaN, malformed JSON and everything else become texts; NULL becomes null.

    Moves the cursor to the end of its rows. Returns "[]" for a null cursor. Throws what the cursor throws; a
    failure that ends the rows early is not reported (see `I_FetchStatus`). */
NBX_API String CursorToJSON(smart_ptr<I_DuckDBCursor> cursor);

}  // namespace nbx::mrsql
