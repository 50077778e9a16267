#include "databases/databases.h"

#include <fmt/format.h>

#include <stdexcept>

#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/registry.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

uint64_t gTimeLimit = 0;

}  // namespace

void put_StatementTimeLimit(uint64_t milliseconds) {
    gTimeLimit = milliseconds;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> GetExtension() {
    auto extension = nbx::mrsql::GetDuckDBExtension();
    if (extension == nullptr) {
        throw std::runtime_error("The module does not provide databases.");
    }
    return extension;
}

nbx::smart_ptr<nbx::I_Location> MakeLocation(const std::string& path) {
    const nbx::String text = FromUtf8(path);
    // With bytes replaced it would name another file.
    if (ToUtf8(text) != path) {
        throw std::runtime_error(fmt::format("'{}' is not valid UTF-8.", path));
    }
    return nbx::CreateLocation(text);
}

DatabasePtr MakeDatabase(const std::string& path) {
    DatabasePtr database = GetExtension()->CreateDatabase(MakeLocation(path));
    if (gTimeLimit > 0) {
        auto* const deadlines = static_cast<nbx::mrsql::I_DuckDBDeadlines*>(
            database->QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId));
        if (deadlines == nullptr) {
            throw std::runtime_error("The module cannot limit the time of statements.");
        }
        deadlines->put_TimeLimit(gTimeLimit);
    }
    return database;
}

DatabasePtr OpenDatabase(const std::string& path, IfMissing if_missing, bool is_read_only) {
    DatabasePtr database = MakeDatabase(path);
    if (is_read_only) {
        nbx::mrsql::DuckDBDatabaseOptions options;
        options.read_write = false;
        database->put_Options(options);
    }
    if (if_missing == IfMissing::kCreate && !GetExtension()->IsInMemoryPath(FromUtf8(path)) &&
        !database->get_Exists()) {
        database->Create();
    } else {
        database->Open();
    }
    return database;
}

std::vector<std::string> QueryTexts(const DatabasePtr& database, const std::string& sql) {
    std::vector<std::string> texts;
    const auto cursor = database->SqlSelect(FromUtf8(sql), nbx::mrsql::kServerCursor, nullptr);
    while (cursor->NextRecord()) {
        const auto value = cursor->get_Value(0);
        texts.push_back(value == nullptr || value->get_IsNull() ? "" : ToUtf8(value->get_Text()));
    }
    return texts;
}

}  // namespace mduckdb_host
