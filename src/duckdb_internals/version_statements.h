#pragma once

#include <duckdb/execution/operator/scan/physical_table_scan.hpp>
#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/main/prepared_statement_data.hpp>
#include <duckdb/parser/expression/function_expression.hpp>
#include <duckdb/parser/expression/subquery_expression.hpp>
#include <duckdb/parser/parser.hpp>
#include <duckdb/parser/sql_statement.hpp>
#include <duckdb/parser/statement/select_statement.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>
#if MDUCKDB_DUCKDB_MAJOR == 1
#include <duckdb/main/materialized_query_result.hpp>
#else
#include <duckdb/main/client_data.hpp>
#include <duckdb/main/query_parameters.hpp>
#include <duckdb/planner/operator/logical_get.hpp>
#include <duckdb/planner/planner.hpp>
#endif

/* What DuckDB 1.5 and 2.0 name differently in statements: parsing, preparing and running them. */
namespace mduckdb::version {

/** Where a result's rows are kept. */
enum class RowsIn {
    kBufferManager,
    /** Nowhere: they are computed while they are read. Rows of a statement that is not a SELECT are kept in
       plain memory. */
    kStream,
};

/** Whether there may be many of them. The one row of an INSERT's count needs no block of the buffer manager,
   whose allocation would take longer than what is left of such a statement's time. */
inline bool ReturnsRows(const duckdb::PreparedStatementData& plan) {
    return plan.properties.return_type == duckdb::StatementReturnType::QUERY_RESULT;
}

#if MDUCKDB_DUCKDB_MAJOR == 1

/** Whether the files of a failed run may be closed at once. DuckDB 2.0.0 then sometimes waits for ever for
   its own writing tasks (`AsyncFileWriter`). */
inline constexpr bool kMayCloseUnfinishedFiles = true;

/** A statement that has been begun. */
using Pending = duckdb::PendingQueryResult;

/** Of a successfully prepared statement. */
inline duckdb::StatementType TypeOf(const duckdb::PreparedStatement& prepared) {
    return prepared.data->statement_type;
}

/** The length of a statement's own part of its text; 0 for a statement that DuckDB wrote. */
inline idx_t TextLength(const duckdb::SQLStatement& statement) {
    return statement.stmt_length;
}

/** A statement's own part of its text, without the semicolon and what follows it. DuckDB 2.0 has dropped the
   blanks and comments before it. */
inline const std::string& OwnText(const duckdb::SQLStatement& statement) {
    return statement.query;
}

/** A parser with the context's settings that does not run what a PRAGMA expands to. */
inline duckdb::Parser MakeParser(duckdb::ClientContext& context) {
    return duckdb::Parser(context.GetParserOptions());
}
inline duckdb::unique_ptr<duckdb::ParsedExpression> ParseExpression(duckdb::ClientContext& /*context*/,
                                                                    const std::string& text) {
    return std::move(duckdb::Parser::ParseExpressionList(text).at(0));
}
inline const std::string& NameOf(const duckdb::FunctionExpression& call) {
    return call.function_name;
}
inline duckdb::SelectStatement& SelectOf(duckdb::SubqueryExpression& subquery) {
    return *subquery.subquery;
}

/** Without values for its parameters DuckDB cannot plan a statement; throws what it reports of one that it
   runs without values. */
inline void RequireNoParameters(const duckdb::PreparedStatement& prepared) {
    if (prepared.data->properties.parameter_count > 0) {
        throw duckdb::InvalidInputException("Expected %llu parameters, but none were supplied",
                                            prepared.data->properties.parameter_count);
    }
}

/** A successfully prepared statement's plan and properties. */
inline duckdb::PreparedStatementData& PlanOf(duckdb::ClientContext& /*context*/,
                                             duckdb::PreparedStatement& prepared) {
    return *prepared.data;
}
inline std::vector<std::string> ColumnNames(const duckdb::PreparedStatementData& plan) {
    return plan.names;
}
inline void AddTableFunctions(const duckdb::PhysicalOperator& plan, std::vector<std::string>& names) {
    if (plan.type == duckdb::PhysicalOperatorType::TABLE_SCAN) {
        names.push_back(plan.Cast<duckdb::PhysicalTableScan>().function.name);
    }
    for (const auto& child : plan.GetChildren()) {
        AddTableFunctions(child.get(), names);
    }
}
/** The table functions that the statement runs, also those that a view, a macro or `query()` brings. Nothing
    when it has no plan. */
inline std::optional<std::vector<std::string>> FindTableFunctions(duckdb::ClientContext& /*context*/,
                                                                  const duckdb::PreparedStatementData& plan) {
    if (!plan.physical_plan) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    AddTableFunctions(plan.physical_plan->Root(), names);
    return names;
}

/** Begins a prepared statement that has no parameters; the rows are in the buffer manager. An error has a
   position, and does not quote the text. */
inline duckdb::unique_ptr<Pending> BeginPlan(duckdb::ClientContext& context,
                                             duckdb::PreparedStatement& prepared) {
    duckdb::PendingQueryParameters parameters;
    parameters.query_parameters.memory_type = duckdb::QueryResultMemoryType::BUFFER_MANAGED;
    return context.PendingQuery("", prepared.data, parameters);
}
/** Runs what has been begun, which has not failed, to its end. */
inline duckdb::unique_ptr<duckdb::QueryResult> Complete(duckdb::unique_ptr<Pending> pending) {
    return pending->Execute();
}

/** Does what `duckdb_pending_prepared` does, except for where the rows are kept, which the C API cannot
   choose. */
inline void Begin(duckdb::PreparedStatementWrapper& prepared, RowsIn rows,
                  duckdb::PendingStatementWrapper& pending) {
    duckdb::PreparedStatement& statement = *prepared.statement;
    duckdb::PreparedStatement::VerifyParameters(prepared.values, statement.named_param_map);
    duckdb::PendingQueryParameters parameters;
    parameters.parameters = &prepared.values;
    const bool streams = rows == RowsIn::kStream;
    parameters.query_parameters = streams ? duckdb::QueryResultOutputType::ALLOW_STREAMING
                                          : duckdb::QueryResultOutputType::FORCE_MATERIALIZED;
    if (!streams && ReturnsRows(*statement.data)) {
        parameters.query_parameters.memory_type = duckdb::QueryResultMemoryType::BUFFER_MANAGED;
    }
    pending.allow_streaming = streams;
    pending.statement = statement.context->PendingQuery(statement.query, statement.data, parameters);
}
/** Runs a stream that has been opened until its first rows are there; false when it failed before. */
inline bool AwaitRows(duckdb::DuckDBResultData& /*data*/) {
    // DuckDB 1.5 has done so when it opened the stream.
    return true;
}

#else

inline constexpr bool kMayCloseUnfinishedFiles = false;

using Pending = duckdb::QueryResult;

inline duckdb::StatementType TypeOf(const duckdb::PreparedStatement& prepared) {
    return prepared.GetStatementType();
}
inline idx_t TextLength(const duckdb::SQLStatement& statement) {
    return statement.stmt_location.length;
}
// A statement's text begins with its first word and ends where the next statement begins.
inline std::string OwnText(const duckdb::SQLStatement& statement) {
    const std::string& query = statement.query;
    idx_t end = query.size();
    const duckdb::vector<duckdb::SimplifiedToken> tokens = duckdb::Parser::Tokenize(query);
    for (auto token = tokens.rbegin(); token != tokens.rend(); ++token) {
        if (query[token->start] == ';') {
            end = token->start;
        } else if (token->type != duckdb::SimplifiedTokenType::SIMPLIFIED_TOKEN_COMMENT) {
            break;
        }
    }
    return query.substr(0, end);
}

inline duckdb::Parser MakeParser(duckdb::ClientContext& context) {
    return duckdb::Parser(context);
}
inline duckdb::unique_ptr<duckdb::ParsedExpression> ParseExpression(duckdb::ClientContext& context,
                                                                    const std::string& text) {
    return duckdb::Parser(context).ParseSingleExpression(text);
}
inline const std::string& NameOf(const duckdb::FunctionExpression& call) {
    return call.FunctionName().GetIdentifierName();
}
inline duckdb::SelectStatement& SelectOf(duckdb::SubqueryExpression& subquery) {
    return *subquery.SubqueryMutable();
}

inline void RequireNoParameters(const duckdb::PreparedStatement& prepared) {
    duckdb::PreparedStatement::VerifyParameters(duckdb::identifier_map_t<duckdb::BoundParameterData>(),
                                                prepared.GetNamedParameterMap());
}

inline duckdb::PreparedStatementData& PlanOf(duckdb::ClientContext& context,
                                             duckdb::PreparedStatement& prepared) {
    return *duckdb::ClientData::Get(context).prepared_statements.at(duckdb::Identifier(prepared.GetName()));
}
inline std::vector<std::string> ColumnNames(const duckdb::PreparedStatementData& plan) {
    std::vector<std::string> names;
    for (const duckdb::Identifier& name : plan.names) {
        names.push_back(name.GetIdentifierName());
    }
    return names;
}
inline void AddTableFunctions(const duckdb::LogicalOperator& plan, std::vector<std::string>& names) {
    if (plan.type == duckdb::LogicalOperatorType::LOGICAL_GET) {
        names.push_back(plan.Cast<duckdb::LogicalGet>().function.GetName().GetIdentifierName());
    }
    for (const auto& child : plan.children) {
        AddTableFunctions(*child, names);
    }
}
// DuckDB 2.0 keeps no plan of a statement that reads files, and plans it again when it runs.
inline std::optional<std::vector<std::string>> FindTableFunctions(duckdb::ClientContext& context,
                                                                  const duckdb::PreparedStatementData& plan) {
    if (!plan.unbound_statement) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    context.RunFunctionInTransaction([&] {
        duckdb::Planner planner(context);
        planner.CreatePlan(plan.unbound_statement->Copy());
        AddTableFunctions(*planner.plan, names);
    });
    return names;
}

inline duckdb::unique_ptr<Pending> BeginPlan(duckdb::ClientContext& /*context*/,
                                             duckdb::PreparedStatement& prepared) {
    duckdb::vector<duckdb::Value> no_values;
    auto pending = prepared.Submit(no_values, duckdb::QueryParameters(duckdb::ChunkFormat::BufferManaged()));
    if (!pending->HasError()) {
        pending->Materialize();
    }
    return pending;
}
inline duckdb::unique_ptr<duckdb::QueryResult> Complete(duckdb::unique_ptr<Pending> pending) {
    pending->Complete();
    return pending;
}

inline void Begin(duckdb::PreparedStatementWrapper& prepared, RowsIn rows,
                  duckdb::PendingStatementWrapper& pending) {
    duckdb::PreparedStatement& statement = *prepared.statement;
    duckdb::QueryParameters parameters;
    if (rows == RowsIn::kBufferManager) {
        parameters.format = duckdb::ChunkFormat::BufferManaged();
    }
    pending.statement = statement.Submit(prepared.values, parameters);
    pending.allow_streaming = rows == RowsIn::kStream && !pending.statement->HasError() &&
                              duckdb::StreamsByDefault(statement.GetStatementType(), *pending.statement);
    if (!pending.allow_streaming && !pending.statement->HasError()) {
        pending.statement->Materialize();
    }
}
inline bool AwaitRows(duckdb::DuckDBResultData& data) {
    if (!data.stream) {
        return true;
    }
    for (auto state = data.stream->ExecuteTask(); !duckdb::IsObservable(state);
         state = data.stream->ExecuteTask()) {
        if (state == duckdb::QueryResultState::BLOCKED ||
            state == duckdb::QueryResultState::NO_TASKS_AVAILABLE) {
            data.stream->WaitForTask();
        }
    }
    return !data.stream->HasError();
}

#endif

/** A statement that could not be begun. */
inline duckdb::unique_ptr<Pending> MakeFailedPending(const duckdb::ErrorData& error) {
    return duckdb::make_uniq<Pending>(error);
}

}  // namespace mduckdb::version
