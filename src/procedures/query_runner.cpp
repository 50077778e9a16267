#include "procedures/query_runner.h"

#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/holders.h"
#include "duckdb_internals/one_select.h"
#include "duckdb_internals/results.h"
#include "procedures/procedures.h"
#include "procedures/query_state.h"
#include "procedures/select_type.h"
#include "procedures/type_tables.h"

namespace mduckdb {
namespace {

constexpr std::string_view kBeforeBase = "SELECT * FROM (";
constexpr std::string_view kAfterBase = ") AS parquet_source LIMIT 0";

ResultHolder FetchRows(PrivateEngine& engine, const char* procedure_name, const std::string& base_query,
                       const std::string& limit) {
    std::string whole(kBeforeBase);
    whole.append(base_query).append(kAfterBase);
    ResultHolder result;
    try {
        result = ResultHolder(RunOneSelect(engine.get_Connection(), {base_query, kBeforeBase.size(), whole,
                                                                     limit, engine.get_Call().get_IsCut()}));
    } catch (const RefusedSelect& refused) {
        const std::string function = refused.get_Function();
        throw std::invalid_argument(std::string(procedure_name) +
                                    (function.empty() ? " accepts one SELECT only."
                                                      : " does not allow the function " + function + "."));
    }
    if (duckdb_result_error(result.get()) != nullptr) {
        engine.get_Call().ThrowIfCut();
        throw QueryError(*result.get());
    }
    return result;
}

std::vector<ColumnRecord> DescribeColumns(duckdb_result& result) {
    std::vector<ColumnRecord> columns;
    const idx_t count = duckdb_column_count(&result);
    columns.reserve(count);
    for (idx_t i = 0; i < count; ++i) {
        const auto reported = static_cast<std::int32_t>(duckdb_column_type(&result, i));
        const std::int32_t normalised = NormalizeDuckDBType(reported);
        const std::int32_t select_type = GetSelectType(reported, normalised);
        columns.push_back({ColumnName(GetColumnName(result, i), i), normalised,
                           HostTypeOfDuckDBType(normalised),
                           NormalizeDuckDBType(select_type) != select_type});
    }
    return columns;
}

}  // namespace

std::string ColumnName(std::optional<std::string_view> duckdb_name, idx_t column) {
    return duckdb_name ? std::string(*duckdb_name) : "Column" + std::to_string(column + 1);
}

void RequireNoNul(const char* procedure_name, const std::string& sql) {
    if (sql.find('\0') != sql.npos) {
        throw std::invalid_argument(std::string(procedure_name) +
                                    " does not accept a NUL character in its arguments.");
    }
}

mirona_cursor RunQuery(mirona_call call, const char* procedure_name, PrivateEngine engine,
                       const std::string& base_query, const std::string& limit) {
    RequireNoNul(procedure_name, base_query);
    ResultHolder result =
        engine.RunInTime([&] { return FetchRows(engine, procedure_name, base_query, limit); });
    const ResultSize size = MeasureResult(*result);
    engine.get_Call().Finish(size.rows, size.bytes);
    engine.FinishReading();
    std::vector<ColumnRecord> columns = DescribeColumns(*result.get());
    auto state = std::make_unique<QueryState>(std::move(engine), std::move(columns), std::move(result));
    const mirona_cursor_def def = state->MakeCursorDef();
    mirona_cursor cursor = nullptr;
    if (GetApi().create_cursor(call, &def, &cursor) != 0) {
        throw std::runtime_error("Unable to create DuckDB cursor.");
    }
    static_cast<void>(state.release());  // now owned by the cursor
    return cursor;
}

}  // namespace mduckdb
