#include "procedures/query_runner.h"

#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/holders.h"
#include "procedures/procedures.h"
#include "procedures/query_state.h"
#include "procedures/select_type.h"
#include "procedures/sql_text.h"
#include "procedures/type_tables.h"

namespace mduckdb {
namespace {

struct Plan {
    std::vector<ColumnRecord> columns;
    std::vector<std::string> select_items;
    /** The same with null for what cannot be cast. */
    std::vector<std::string> forgiving_items;
};

/** Asks DuckDB for the columns of the base query, without rows. */
Plan ProbeColumns(PrivateEngine& engine, const std::string& base_query) {
    ResultHolder probe = engine.Query("SELECT * FROM (" + base_query + ") AS parquet_source LIMIT 0");
    Plan plan;
    const idx_t count = duckdb_column_count(probe.get());
    for (idx_t i = 0; i < count; ++i) {
        const auto reported = static_cast<std::int32_t>(duckdb_column_type(probe.get(), i));
        const std::int32_t normalised = NormalizeDuckDBType(reported);
        std::string name = ColumnName(duckdb_column_name(probe.get(), i), i);
        const std::int32_t select_type = GetSelectType(reported, normalised);
        plan.select_items.push_back(SelectItem(name, select_type));
        plan.forgiving_items.push_back(ForgivingSelectItem(name, select_type));
        plan.columns.push_back({std::move(name), normalised, HostTypeOfDuckDBType(normalised)});
    }
    return plan;
}

/** The rows with the casts as they are; when that fails, perhaps because one cell holds a number that is no
    value of its type, with null for such cells. */
ResultHolder FetchRows(PrivateEngine& engine, const Plan& plan, const std::string& base_query,
                       const std::string& limit) {
    ResultHolder result;
    if (engine.TryQuery(FinalQuery(JoinList(plan.select_items), base_query, limit), result)) {
        return result;
    }
    ResultHolder forgiving;
    if (plan.forgiving_items != plan.select_items &&
        engine.TryQuery(FinalQuery(JoinList(plan.forgiving_items), base_query, limit), forgiving)) {
        return forgiving;
    }
    throw QueryError(*result.get());
}

}  // namespace

std::string ColumnName(const char* duckdb_name, idx_t column) {
    return duckdb_name != nullptr ? duckdb_name : "Column" + std::to_string(column + 1);
}

std::string FinalQuery(const std::string& select_list, const std::string& base_query,
                       const std::string& limit) {
    std::string sql = "SELECT " + select_list + " FROM (" + base_query + ") AS parquet_source";
    if (!limit.empty()) {
        sql += " LIMIT " + limit;
    }
    return sql;
}

mirona_cursor RunQuery(mirona_call call, PrivateEngine engine, const std::string& base_query,
                       const std::string& limit) {
    Plan plan = ProbeColumns(engine, base_query);
    ResultHolder result = FetchRows(engine, plan, base_query, limit);
    auto state = std::make_unique<QueryState>(std::move(engine), std::move(plan.columns), std::move(result));
    const mirona_cursor_def def = state->MakeCursorDef();
    mirona_cursor cursor = nullptr;
    if (GetApi().create_cursor(call, &def, &cursor) != 0) {
        throw std::runtime_error("Unable to create DuckDB cursor.");
    }
    static_cast<void>(state.release());  // the cursor's now
    return cursor;
}

}  // namespace mduckdb
