#include <functional>
#include <string>
#include <utility>

#include "base/engine_lock.h"
#include "base/errors.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/results.h"
#include "duckdb_internals/statement_pieces.h"
#include "nbx/hooks.h"
#include "objects/cursor.h"
#include "objects/database.h"
#include "objects/operation.h"
#include "objects/query_result.h"
#include "values/parameter_binding.h"

namespace mduckdb {

namespace {

/** What becomes of the results of a script. */
struct ResultTaker {
    /** Told how many results there may be, before the first statement runs. */
    std::function<void(idx_t count)> expect;
    /** Given the result of each statement when it has run and may have been committed: must not throw. */
    std::function<void(ResultHolder)> take;
};

/** Rolls back what a script left open, when one of its statements does not run to its end. There may be
    nothing to roll back. */
class ScriptRollback : nbx::noncopyable {
  public:
    explicit ScriptRollback(DatabaseLink& database) : database_(database) {}
    ~ScriptRollback() {
        if (is_needed_) {
            database_.Rollback();
        }
    }
    void Cancel() noexcept { is_needed_ = false; }

  private:
    DatabaseLink& database_;
    bool is_needed_ = true;
};

ResultHolder ExecuteSingle(DatabaseLink& database, const duckdb_connection& connection,
                           const std::string& sql, const nbx::ValueRow& parameters)
    NBX_REQUIRES(gEngineLock) {
    PreparedHolder prepared;
    if (database.Prepare(connection, sql, prepared.Receive()) != DuckDBSuccess) {
        const Failure error = FailureOf(prepared.get(), "Failed to prepare statement");
        prepared.Reset();
        database.ThrowFailure(error);
    }
    ParameterValues(&parameters).Bind(prepared.get(), database.get_ErrorPath());
    if (connection == nullptr) {
        database.ThrowError("DuckDBDatabase is not open");  // a host value has closed it while it was read
    }
    ResultHolder result;
    const duckdb_state state = database.ExecutePrepared(prepared.get(), result.Receive());
    prepared.Reset();
    if (state != DuckDBSuccess) {
        const Failure error = FailureOf(*result, "Failed to execute prepared statement");
        result.Reset();
        database.ThrowFailure(error);
    }
    return result;
}

/** Rolls back the transaction that DuckDB opens for a statement that it expands, when one of the pieces fails
    and no transaction was open before. A transaction of the user stays open. */
class ExpandedTransaction : nbx::noncopyable {
  public:
    ExpandedTransaction(DatabaseLink& database, duckdb_connection connection)
        : database_(database), connection_(connection) {}
    ~ExpandedTransaction() {
        if (may_roll_back_ && IsInTransaction(connection_)) {
            database_.Rollback();
        }
    }
    /** Before the statement is prepared. */
    void Reach(duckdb_extracted_statements extracted, idx_t index) {
        if (index < end_) {
            return;
        }
        const idx_t count = CountPieces(extracted, index);
        end_ = index + count;
        may_roll_back_ = count > 1 && !IsInTransaction(connection_);
    }
    /** Keeps the transaction: everything succeeded. */
    void End() noexcept { may_roll_back_ = false; }

  private:
    DatabaseLink& database_;
    const duckdb_connection connection_;
    idx_t end_ = 0;
    bool may_roll_back_ = false;
};

PreparedHolder PrepareOne(DatabaseLink& database, duckdb_connection connection, ExtractedHolder& extracted,
                          idx_t index) {
    PreparedHolder prepared;
    if (database.PrepareExtracted(connection, extracted.get(), index, prepared.Receive()) != DuckDBSuccess) {
        const Failure error = FailureOf(prepared.get(), "Failed to prepare extracted statement");
        prepared.Reset();
        extracted.Reset();
        database.ThrowFailure(error);
    }
    return prepared;
}

void ExecuteStatements(DatabaseLink& database, duckdb_connection connection, const std::string& sql,
                       const ResultTaker& taker) NBX_REQUIRES(gEngineLock) {
    ExtractedHolder extracted;
    const idx_t count = duckdb_extract_statements(connection, sql.c_str(), extracted.Receive());
    if (count == 0) {
        const Failure error =
            FailureOf(duckdb_extract_statements_error(extracted.get()), "Failed to extract statements");
        extracted.Reset();
        database.ThrowFailure(error);
    }
    taker.expect(count);
    ExpandedTransaction expanded(database, connection);
    for (idx_t index = 0; index < count; ++index) {
        expanded.Reach(extracted.get(), index);
        PreparedHolder prepared = PrepareOne(database, connection, extracted, index);
        ScriptRollback rollback(database);
        ResultHolder result;
        const duckdb_state state = database.ExecutePrepared(prepared.get(), result.Receive(), count);
        prepared.Reset();
        if (state != DuckDBSuccess) {
            const Failure error = FailureOf(*result, "Failed to execute statement");
            result.Reset();
            extracted.Reset();
            database.ThrowFailure(error);
        }
        rollback.Cancel();
        taker.take(std::move(result));
    }
    expanded.End();
}

/** Runs a SQL text on the database's connection. With parameters (neither null nor empty) the text is one
    statement. Throws `xDuckDBError`, or `xInterruptError` after an interrupt, and then leaves no DuckDB
    object behind except those that the taker received; a transaction that was open when a statement of a
    script failed is rolled back. */
void ExecuteScript(DatabaseLink& database, const nbx::String& sql, const nbx::ValueRow* parameters,
                   const ResultTaker& taker) NBX_REQUIRES(gEngineLock) {
    const SharedConnection connection = database.RequireConnection();
    const std::string text = database.ToSql(sql);
    if (parameters == nullptr || parameters->get_IsEmpty()) {
        ExecuteStatements(database, *connection, text, taker);
    } else {
        taker.expect(1);
        taker.take(ExecuteSingle(database, *connection, text, *parameters));
    }
}

/** One result for each statement, in their order. */
ResultList CollectResults(DatabaseLink& database, const nbx::String& sql, const nbx::ValueRow* parameters)
    NBX_REQUIRES(gEngineLock) {
    ResultList results;
    ExecuteScript(database, sql, parameters,
                  {[&results](idx_t count) { results.reserve(count); },
                   [&results](ResultHolder result) { results.push_back(std::move(result)); }});
    return results;
}

}  // namespace

int64_t DuckDBDatabase::SqlExecute(const nbx::String& sql, nbx::smart_ptr<nbx::ValueRow> parameters) {
    nbx::MironaInit3();
    EngineLockScope lock;
    const Operation operation(*link_);
    int64_t total = 0;
    // One at a time, so that the rows of one statement are freed before the next begins.
    ExecuteScript(*link_, sql, parameters.get(),
                  {[](idx_t) {}, [&total](ResultHolder result) { total += GetRowsChanged(result.get()); }});
    return total;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> DuckDBDatabase::SqlQuery(
    const nbx::String& sql, uint32_t cursor_location, nbx::smart_ptr<nbx::ValueRow> parameters) {
    nbx::MironaInit3();
    EngineLockScope lock;
    const Operation operation(*link_);
    auto head = MakeQueryResult(link_, cursor_location);
    FillQueryResult(*head, CollectResults(*link_, sql, parameters.get()));
    return head;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> DuckDBDatabase::SqlSelect(
    const nbx::String& sql, uint32_t cursor_location, nbx::smart_ptr<nbx::ValueRow> parameters) {
    nbx::MironaInit3();
    EngineLockScope lock;
    const Operation operation(*link_);
    ResultList results = CollectResults(*link_, sql, parameters.get());
    if (results.size() != 1) {
        results.clear();
        ThrowError("Query doesn't return a single result");
    }
    if (duckdb_result_return_type(*results.front()) != DUCKDB_RESULT_TYPE_QUERY_RESULT) {
        results.clear();
        ThrowError("Query doesn't return a result");
    }
    return MakeCursor(link_, results.front(), cursor_location);
}

}  // namespace mduckdb
