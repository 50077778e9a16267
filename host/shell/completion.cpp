#include "shell/completion.h"
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

constexpr const char* kFunctionsQuery =
    "SELECT DISTINCT function_name FROM duckdb_functions() "
    "WHERE regexp_full_match(function_name, '[a-z][a-z0-9_]*') ORDER BY 1";

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

std::vector<std::string> KeepStarting(std::vector<std::string> words, const std::string& start) {
    std::erase_if(words, [&start](const std::string& word) { return !StartsWithAnyCase(word, start); });
    return words;
}

/** The texts of a query; empty when they cannot be read now. */
std::vector<std::string> ListTexts(const DatabasePtr& database, const char* query) noexcept {
    try {
        return database == nullptr ? std::vector<std::string>() : QueryTexts(database, query);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace

std::vector<std::string> Complete(const Session& session, const std::string& line, const std::string& word) {
    if (line.empty() && word.starts_with('.')) {
        return CompleteDotCommand(word);
    }
    // Inside quotes and where a dot command accepts any word, the reader completes file names.
    if (IsInQuotes(line)) {
        return {};
    }
    if (line.starts_with('.')) {
        return KeepStarting(CompleteDotArgument(session, line), word);
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
    const DatabasePtr database = session.HasCurrent() ? session.get_Current().database : DatabasePtr();
    for (const std::string& name : ListTexts(database, kNamesQuery)) {
        if (StartsWithAnyCase(name, word)) {
            words.push_back(QuoteName(name));
        }
    }
    // There are so many functions that they would hide everything else.
    return words.empty() ? KeepStarting(ListTexts(database, kFunctionsQuery), word) : words;
}

std::string DescribeContinuation(const Session& session, const std::string& line) {
    if (line.starts_with('.')) {
        return DescribeDotArguments(line);
    }
    for (const Procedure& procedure : session.get_Registry().get_Procedures()) {
        const std::string start = procedure.name + "(";
        if (line.size() > start.size() && line.ends_with(start) && StartsWithAnyCase(line, "CALL ")) {
            return procedure.signature + ")";
        }
    }
    return {};
}

}  // namespace mduckdb_host
