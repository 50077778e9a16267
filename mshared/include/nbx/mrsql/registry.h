#pragma once

#include "nbx/export.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_extension.h"
#include "nbx/string.h"
#include "nbx/unknown.h"

namespace nbx::mrsql {

/** Installs the process's provider of DuckDB; a null pointer takes it away. */
NBX_API void SetDuckDBExtension(smart_ptr<I_DuckDBExtension> extension);
/** The provider, or null when no module has been loaded. */
NBX_API smart_ptr<I_DuckDBExtension> GetDuckDBExtension();

/** The rows from the cursor's position on, as a JSON array with an object for each row; numbers and
    booleans as such, JSON values as they are, everything else as text, NULL as null. */
NBX_API String CursorToJSON(smart_ptr<I_DuckDBCursor> cursor);

}  // namespace nbx::mrsql
