#include "shell/completion.h"
#include <algorithm>

#include <algorithm>
#include <cctype>

#include "shell/dot_commands.h"
#include "text/sql_text.h"

namespace mduckdb_host {

namespace {

constexpr const char* kNamesQuery =
    "SELECT DISTINCT name FROM (SELECT table_name AS name FROM duckdb_tables() WHERE NOT internal "
    "UNION ALL SELECT view_name FROM duckdb_views() WHERE NOT internal "
    "UNION ALL SELECT column_name FROM duckdb_columns() WHERE NOT internal "
    "UNION ALL SELECT schema_name FROM duckdb_schemas() WHERE NOT internal) ORDER BY name LIMIT 20000";

bool StartsWithAnyCase(std::string_view text, std::string_view start) {
    return text.size() >= start.size() &&
           std::equal(start.begin(), start.end(), text.begin(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

/** The keyword in lower case if the user began it so. */
std::string InCaseOf(std::string_view keyword, const std::string& word) {
    std::string text(keyword);
    const bool is_lower =
        std::any_of(word.begin(), word.end(), [](unsigned char c) { return std::islower(c) != 0; });
    if (is_lower) {
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    }
    return text;
}

bool IsInQuotes(const std::string& line) {
    return std::count(line.begin(), line.end(), '\'') % 2 != 0 ||
           std::count(line.begin(), line.end(), '"') % 2 != 0;
}

/** Names of the tables, views and columns of a database; empty when they cannot be read now. */
std::vector<std::string> ListNames(const DatabasePtr& database) noexcept {
    try {
        return database == nullptr ? std::vector<std::string>() : QueryTexts(database, kNamesQuery);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace

std::vector<std::string> Complete(const Session& session, const std::string& line, const std::string& word) {
    if (line.empty() && word.starts_with('.')) {
        return CompleteDotCommand(word);
    }
    // Inside quotes and behind a dot command the reader completes file names.
    if (IsInQuotes(line) || line.starts_with('.')) {
        return {};
    }
    std::vector<std::string> words;
    for (const std::string_view keyword : GetKeywords()) {
        if (StartsWithAnyCase(keyword, word)) {
            words.push_back(InCaseOf(keyword, word));
        }
    }
    for (const Procedure& procedure : session.get_Registry().get_Procedures()) {
        if (StartsWithAnyCase(procedure.name, word)) {
            words.push_back(procedure.name);
        }
    }
    for (const std::string& name :
         ListNames(session.HasCurrent() ? session.get_Current().database : DatabasePtr())) {
        if (StartsWithAnyCase(name, word)) {
            words.push_back(QuoteName(name));
        }
    }
    return words;
}

}  // namespace mduckdb_host
