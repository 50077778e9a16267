#include "procedures/handlers.h"
#include "procedures/query_runner.h"
#include "procedures/sql_text.h"

namespace mduckdb {

mirona_cursor ParquetCount::Run(mirona_call call, const Arguments& arguments) {
    const std::string uri = arguments.ParquetFiles(kName);
    return RunQuery(
        call, kName, PrivateEngine::OpenInMemory(kName, uri),
        "SELECT count(*) AS count FROM " + ReadParquetCall(uri) + WhereClause(arguments.OptionalText(1)), {});
}

}  // namespace mduckdb
