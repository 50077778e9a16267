#include "database/script_execution.h"

#include <string>
#include <utility>

#include "cursor/cursor.h"
#include "database/database.h"
#include "database/errors.h"
#include "nbx/hooks.h"
#include "statement/host_value_binding.h"

namespace mduckdb {

using duckdb_plain::ExtractedHolder;
using duckdb_plain::PreparedHolder;
using duckdb_plain::ResultHolder;

namespace {

/** An interrupt wins over the error that it caused. */
[[noreturn]] void ThrowFailure(DuckDBDatabase& database, const std::string& message) {
    database.ThrowIfInterrupted();
    database.ThrowError(message);
}

ResultHolder ExecuteSingle(DuckDBDatabase& database, duckdb_connection connection, const std::string& sql,
                           const nbx::ValueRow& parameters) {
    PreparedHolder prepared;
    if (duckdb_prepare(connection, sql.c_str(), prepared.Receive()) != DuckDBSuccess) {
        const std::string error = TextOr(duckdb_prepare_error(prepared.get()), "Failed to prepare statement");
        prepared.Reset();
        ThrowFailure(database, error);
    }
    BindValueArray(prepared.get(), &parameters, database);
    ResultHolder result;
    const duckdb_state state = database.ExecutePrepared(prepared.get(), result.Receive());
    prepared.Reset();
    if (state != DuckDBSuccess) {
        const std::string error =
            TextOr(duckdb_result_error(result.get()), "Failed to execute prepared statement");
        result.Reset();
        ThrowFailure(database, error);
    }
    return result;
}

/** Ends the transaction that the script may have opened. There may be none, so the outcome says nothing. */
void Rollback(duckdb_connection connection) {
    ResultHolder ignored;
    duckdb_query(connection, "ROLLBACK", ignored.Receive());
}

PreparedHolder PrepareOne(DuckDBDatabase& database, duckdb_connection connection, ExtractedHolder& extracted,
                          idx_t index) {
    PreparedHolder prepared;
    if (duckdb_prepare_extracted_statement(connection, extracted.get(), index, prepared.Receive()) !=
        DuckDBSuccess) {
        const std::string error =
            TextOr(duckdb_prepare_error(prepared.get()), "Failed to prepare extracted statement");
        prepared.Reset();
        extracted.Reset();
        ThrowFailure(database, error);
    }
    return prepared;
}

ResultList ExecuteStatements(DuckDBDatabase& database, duckdb_connection connection, const std::string& sql) {
    ExtractedHolder extracted;
    const idx_t count = duckdb_extract_statements(connection, sql.c_str(), extracted.Receive());
    if (count == 0) {
        const std::string error =
            TextOr(duckdb_extract_statements_error(extracted.get()), "Failed to extract statements");
        extracted.Reset();
        ThrowFailure(database, error);
    }
    ResultList results;
    results.reserve(count);
    for (idx_t index = 0; index < count; ++index) {
        PreparedHolder prepared = PrepareOne(database, connection, extracted, index);
        ResultHolder result;
        const duckdb_state state = database.ExecutePrepared(prepared.get(), result.Receive());
        prepared.Reset();
        if (state != DuckDBSuccess) {
            const std::string error =
                TextOr(duckdb_result_error(result.get()), "Failed to execute statement");
            result.Reset();
            Rollback(connection);
            extracted.Reset();
            results.clear();
            ThrowFailure(database, error);
        }
        results.push_back(std::move(result));
    }
    return results;
}

int64_t RowsChanged(ResultHolder& result) {
    return duckdb_result_return_type(*result) == DUCKDB_RESULT_TYPE_CHANGED_ROWS
               ? static_cast<int64_t>(duckdb_rows_changed(result.get()))
               : 0;
}

}  // namespace

ResultList ExecuteScript(DuckDBDatabase& database, const nbx::String& sql, const nbx::ValueRow* parameters) {
    database.ClearInterrupted();
    const SharedConnection connection = database.RequireConnection();
    const std::string text = database.ToSql(sql);
    if (parameters == nullptr || parameters->get_IsEmpty()) {
        return ExecuteStatements(database, *connection, text);
    }
    ResultList results;
    results.push_back(ExecuteSingle(database, *connection, text, *parameters));
    return results;
}

int64_t DuckDBDatabase::SqlExecute(const nbx::String& sql, nbx::smart_ptr<nbx::ValueRow> parameters) {
    nbx::MironaInit3();
    EngineLockScope lock;
    ResultList results = ExecuteScript(*this, sql, parameters.get());
    int64_t total = 0;
    for (ResultHolder& result : results) {
        total += RowsChanged(result);
    }
    return total;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> DuckDBDatabase::SqlQuery(
    const nbx::String& sql, uint32_t cursor_location, nbx::smart_ptr<nbx::ValueRow> parameters) {
    nbx::MironaInit3();
    EngineLockScope lock;
    return MakeQueryResult(*this, ExecuteScript(*this, sql, parameters.get()), cursor_location);
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> DuckDBDatabase::SqlSelect(
    const nbx::String& sql, uint32_t cursor_location, nbx::smart_ptr<nbx::ValueRow> parameters) {
    nbx::MironaInit3();
    EngineLockScope lock;
    ResultList results = ExecuteScript(*this, sql, parameters.get());
    if (results.size() != 1) {
        results.clear();
        ThrowError("Query doesn't return a single result");
    }
    if (duckdb_result_return_type(*results.front()) != DUCKDB_RESULT_TYPE_QUERY_RESULT) {
        results.clear();
        ThrowError("Query doesn't return a result");
    }
    return MakeCursor(*this, results.front().Detach(), cursor_location);
}

}  // namespace mduckdb
