#include <stdexcept>

#include "procedures/handlers.h"
#include "procedures/query_runner.h"
#include "procedures/sql_text.h"

namespace mduckdb {
namespace {

std::string ReadUri(const Arguments& arguments) {
    if (arguments.get_Count() < 1) {
        throw std::invalid_argument("fetch_parquet requires parquet file path.");
    }
    return arguments.ParquetFiles(FetchParquet::kName);
}

std::string BaseQuery(const std::string& uri, const Arguments& arguments) {
    return "SELECT " + arguments.ColumnList(1) + " FROM " + ReadParquetCall(uri) +
           WhereClause(arguments.OptionalText(2));
}

}  // namespace

mirona_cursor FetchParquet::Run(mirona_call call, const Arguments& arguments) {
    const std::string uri = ReadUri(arguments);
    const std::string base_query = BaseQuery(uri, arguments);
    const std::string limit = arguments.Limit(3);
    return RunQuery(call, kName, PrivateEngine::OpenInMemory(kName, uri), base_query, limit);
}

}  // namespace mduckdb
