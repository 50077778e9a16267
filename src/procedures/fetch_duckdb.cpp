#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text.h"
#include "procedures/handlers.h"
#include "procedures/query_runner.h"
#include "procedures/sql_text.h"

namespace mduckdb {
namespace {

/** The parts of a qualified name without double quotes, whether they were written with them or not. */
std::vector<std::string> ReadQualifiedName(std::string_view name) {
    std::vector<std::string> parts = SplitQualifiedName(name);
    for (std::string& part : parts) {
        if (part.empty()) {
            throw std::invalid_argument("Invalid DuckDB table or view name.");
        }
        part = UnquotePart(part);
    }
    return parts;
}

std::string QuoteQualifiedName(const std::vector<std::string>& parts) {
    std::string quoted;
    for (const std::string& part : parts) {
        quoted += (quoted.empty() ? "" : ".") + QuoteIdentifier(part);
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
    std::vector<std::string> parts = ReadQualifiedName(Trim(name));
    const std::string limit = arguments.Limit(2);
    PrivateEngine engine = PrivateEngine::OpenFile(kName, uri);
    engine.QualifyName(parts);
    return RunQuery(call, kName, std::move(engine), "SELECT * FROM " + QuoteQualifiedName(parts), limit);
}

}  // namespace mduckdb
