#include <stdexcept>
#include <string>

#include "base/text.h"
#include "procedures/handlers.h"
#include "procedures/query_runner.h"
#include "procedures/sql_text.h"

namespace mduckdb {
namespace {

/** The name with every part in double quotes, whether it was given so or not. */
std::string QuoteQualifiedName(std::string_view name) {
    std::string quoted;
    for (const std::string& part : SplitQualifiedName(name)) {
        if (part.empty()) {
            throw std::invalid_argument("Invalid DuckDB table or view name.");
        }
        if (!quoted.empty()) {
            quoted += '.';
        }
        quoted += QuoteIdentifier(UnquotePart(part));
    }
    return quoted;
}

}  // namespace

mirona_cursor FetchDuckDB::Run(mirona_call call, const Arguments& arguments) {
    if (arguments.get_Count() < 2) {
        throw std::invalid_argument("fetch_duckdb requires database URI and DuckDB table or view name.");
    }
    const std::string uri = arguments.RequiredText(0, kName);
    const std::string name = arguments.RequiredText(1, kName);
    if (Trim(name).empty()) {
        throw std::invalid_argument("fetch_duckdb requires DuckDB table or view name.");
    }
    const std::string base_query = "SELECT * FROM " + QuoteQualifiedName(Trim(name));
    const std::string limit = arguments.Limit(2);
    return RunQuery(call, kName, PrivateEngine::OpenFile(uri), base_query, limit);
}

}  // namespace mduckdb
