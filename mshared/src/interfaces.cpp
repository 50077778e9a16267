#include "nbx/file.h"
#include "nbx/foreign_plugin.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_extension.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "nbx/mrsql/duckdb_statement.h"
#include "nbx/string.h"
#include "nbx/value.h"

// The destructors stand here, out of line, so that each interface has its one vtable and type
// information in this library, whichever module implements it.

namespace nbx {

Converter::~Converter() = default;
I_ForeignPlugin::~I_ForeignPlugin() = default;
I_Folder::~I_Folder() = default;
I_RawBytes::~I_RawBytes() = default;
I_DateValue::~I_DateValue() = default;
I_TimeValue::~I_TimeValue() = default;
I_DateTimeValue::~I_DateTimeValue() = default;
I_ReferenceValue::~I_ReferenceValue() = default;
I_ArrayValue::~I_ArrayValue() = default;
I_JSONValue::~I_JSONValue() = default;

namespace mrsql {

I_DuckDBCursor::~I_DuckDBCursor() = default;
I_DuckDBDatabase::~I_DuckDBDatabase() = default;
I_DuckDBExtension::~I_DuckDBExtension() = default;
I_DuckDBQueryResult::~I_DuckDBQueryResult() = default;
I_DuckDBRestore::~I_DuckDBRestore() = default;
I_DuckDBSnapshot::~I_DuckDBSnapshot() = default;
I_DuckDBStatement::~I_DuckDBStatement() = default;

}  // namespace mrsql
}  // namespace nbx
