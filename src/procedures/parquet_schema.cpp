#include <array>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "base/holders.h"
#include "duckdb_internals/results.h"
#include "procedures/handlers.h"
#include "procedures/private_engine.h"
#include "procedures/procedures.h"
#include "procedures/query_runner.h"
#include "procedures/sql_text.h"
#include "procedures/type_tables.h"

namespace mduckdb {
namespace {

constexpr std::array<const char*, 6> kColumns{
    "ordinal", "name", "duckdb_type", "runtime_type", "mirona_type", "mirona_type_name",
};

mirona_value MakeText(mirona_call call, std::string_view text) {
    return GetApi().make_text_value(call, text.data(), static_cast<std::uint32_t>(text.size()), 0);
}

void AppendRow(std::vector<mirona_value>& values, mirona_call call, duckdb_result& result, idx_t column) {
    const auto type = static_cast<std::int32_t>(duckdb_column_type(&result, column));
    const std::int32_t normalised = NormalizeDuckDBType(type);
    const std::int32_t host_type = HostTypeOfDuckDBType(normalised);
    const std::string name = ColumnName(GetColumnName(result, column), column);
    values.push_back(GetApi().make_int_value(call, static_cast<std::int64_t>(column) + 1));
    values.push_back(MakeText(call, name));
    values.push_back(MakeText(call, DuckDBTypeName(type)));
    values.push_back(MakeText(call, DuckDBTypeName(normalised)));
    values.push_back(GetApi().make_int_value(call, host_type));
    values.push_back(MakeText(call, HostTypeName(host_type)));
}

}  // namespace

mirona_cursor ParquetSchema::Run(mirona_call call, const Arguments& arguments) {
    const std::string uri = arguments.ParquetFiles(kName);
    const std::string sql = "SELECT * FROM " + ReadParquetCall(uri) + " LIMIT 0";
    RequireNoNul(kName, sql);
    PrivateEngine engine = PrivateEngine::OpenInMemory(kName, uri);
    ResultHolder result = engine.RunInTime([&] { return engine.Query(sql); });
    engine.FinishReading();
    const idx_t rows = duckdb_column_count(result.get());
    std::vector<mirona_value> values;
    values.reserve(rows * kColumns.size());
    for (idx_t i = 0; i < rows; ++i) {
        AppendRow(values, call, *result.get(), i);
    }
    mirona_cursor cursor = nullptr;
    if (GetApi().create_table_cursor(call, kColumns.size(), rows, kColumns.data(), values.data(), &cursor) !=
        0) {
        throw std::runtime_error("Unable to create cursor.");
    }
    return cursor;
}

}  // namespace mduckdb
