#include "duckdb_internals/written_files.h"

#include <duckdb/execution/physical_plan_generator.hpp>
#include <duckdb/main/connection.hpp>
#include <exception>

#include "duckdb_internals/version_statements.h"

namespace mduckdb {
namespace {

/** DuckDB itself does so before each run. */
void ResetSinks(duckdb::PhysicalOperator& plan) {
    plan.sink_state.reset();
    for (duckdb::PhysicalOperator& child : plan.children) {
        ResetSinks(child);
    }
}

/** Null for one that failed to be prepared. */
duckdb::PreparedStatement* StatementOf(duckdb_prepared_statement prepared) noexcept {
    auto* const wrapper = reinterpret_cast<duckdb::PreparedStatementWrapper*>(prepared);
    const bool is_prepared =
        wrapper != nullptr && wrapper->statement != nullptr && !wrapper->statement->HasError();
    return is_prepared ? wrapper->statement.get() : nullptr;
}

}  // namespace

bool WritesFiles(duckdb_prepared_statement prepared) noexcept {
    duckdb::PreparedStatement* const statement = StatementOf(prepared);
    const duckdb::StatementType type =
        statement == nullptr ? duckdb::StatementType::INVALID_STATEMENT : version::TypeOf(*statement);
    return type == duckdb::StatementType::COPY_STATEMENT || type == duckdb::StatementType::EXPORT_STATEMENT;
}

bool CloseUnfinishedFiles(duckdb_connection connection, duckdb_prepared_statement prepared) noexcept {
    duckdb::PreparedStatement* const statement = StatementOf(prepared);
    if (!version::kMayCloseUnfinishedFiles || statement == nullptr) {
        return false;
    }
    try {
        duckdb::ClientContext& context = *reinterpret_cast<duckdb::Connection*>(connection)->context;
        duckdb::PreparedStatementData& plan = version::PlanOf(context, *statement);
        if (plan.physical_plan) {
            ResetSinks(plan.physical_plan->Root());
        }
        return true;
    } catch (const std::exception&) {
        return false;  // where no plan is kept, no file is
    }
}

}  // namespace mduckdb
