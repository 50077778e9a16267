#include "nbx/foreign_plugin.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/mrsql/duckdb_arrow.h"
#include "nbx/mrsql/duckdb_budget.h"
#include "nbx/mrsql/duckdb_census.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/duckdb_error_facts.h"
#include "nbx/mrsql/duckdb_extension.h"
#include "nbx/mrsql/duckdb_procedure_limits.h"
#include "nbx/mrsql/duckdb_progress.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "nbx/mrsql/duckdb_statement.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx {

// The destructors are out of line, so that each interface has its only vtable and type information in this
// library, whichever module implements the interface. Exceptions and casts that cross modules need that.

I_Unknown::~I_Unknown() = default;
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

ForeignPlugin_imp::~ForeignPlugin_imp() {
    // The finaliser runs first: until it returns, the host may find the object through the back reference.
    if (finalizer_ != nullptr) {
        finalizer_(this);
    }
    if (back_ref_ != nullptr) {
        *back_ref_ = nullptr;
    }
}

void* InterfaceTableQueryInterface(void* object, const InterfaceItem* table, uint32_t interface_id) noexcept {
    // A table has a few rows, so a search from the start is the fastest.
    for (; table->cast != nullptr; ++table) {
        if (table->interface_id == interface_id) {
            return table->cast(object);
        }
    }
    return nullptr;
}

namespace mrsql {

I_DuckDBAppender::~I_DuckDBAppender() = default;
I_DuckDBAppenders::~I_DuckDBAppenders() = default;
I_DuckDBArrow::~I_DuckDBArrow() = default;
I_DuckDBBudget::~I_DuckDBBudget() = default;
I_DuckDBCensus::~I_DuckDBCensus() = default;
I_DuckDBCensusReader::~I_DuckDBCensusReader() = default;
I_DuckDBCursor::~I_DuckDBCursor() = default;
I_DuckDBDatabase::~I_DuckDBDatabase() = default;
I_DuckDBDeadlines::~I_DuckDBDeadlines() = default;
I_DuckDBErrorFacts::~I_DuckDBErrorFacts() = default;
I_DuckDBProgress::~I_DuckDBProgress() = default;
I_DuckDBStreaming::~I_DuckDBStreaming() = default;
I_DuckDBExtension::~I_DuckDBExtension() = default;
I_DuckDBProcedureLimits::~I_DuckDBProcedureLimits() = default;
I_DuckDBQueryResult::~I_DuckDBQueryResult() = default;
I_DuckDBRestore::~I_DuckDBRestore() = default;
I_DuckDBSnapshot::~I_DuckDBSnapshot() = default;
I_DuckDBStatement::~I_DuckDBStatement() = default;

}  // namespace mrsql

}  // namespace nbx
