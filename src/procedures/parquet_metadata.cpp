#include "base/text.h"
#include "procedures/handlers.h"
#include "procedures/query_runner.h"

namespace mduckdb {

mirona_cursor ParquetMetadata::Run(mirona_call call, const Arguments& arguments) {
    const std::string uri = arguments.ParquetFiles(kName);
    return RunQuery(call, kName, PrivateEngine::OpenInMemory(kName, uri),
                    "SELECT * FROM parquet_metadata(" + QuoteLiteral(uri) + ")", {});
}

}  // namespace mduckdb
