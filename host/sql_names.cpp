#include "sql_names.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "text.h"

namespace mduckdb_host {

namespace {

constexpr std::array<std::string_view, 96> kKeywords = {
    "ALL",      "ALTER",    "ANALYZE", "AND",       "ANTI",    "ANY",       "AS",        "ASC",
    "ATTACH",   "BEGIN",    "BETWEEN", "BIGINT",    "BLOB",    "BOOLEAN",   "BY",        "CALL",
    "CASE",     "CAST",     "CHECK",   "COLUMN",    "COMMIT",  "CONFLICT",  "COPY",      "CREATE",
    "CROSS",    "DATABASE", "DATE",    "DECIMAL",   "DEFAULT", "DELETE",    "DESC",      "DESCRIBE",
    "DETACH",   "DISTINCT", "DOUBLE",  "DROP",      "ELSE",    "END",       "EXCEPT",    "EXCLUDE",
    "EXISTS",   "EXPLAIN",  "EXPORT",  "FALSE",     "FROM",    "FULL",      "GROUP",     "HAVING",
    "ILIKE",    "IMPORT",   "INDEX",   "INNER",     "INSERT",  "INTEGER",   "INTERSECT", "INTERVAL",
    "INTO",     "JOIN",     "KEY",     "LEFT",      "LIKE",    "LIMIT",     "MACRO",     "NOT",
    "NULL",     "OFFSET",   "ORDER",   "OUTER",     "OVER",    "PARTITION", "PIVOT",     "PRAGMA",
    "PRIMARY",  "QUALIFY",  "REPLACE", "RETURNING", "RIGHT",   "ROLLBACK",  "SCHEMA",    "SELECT",
    "SEQUENCE", "SET",      "SHOW",    "SUMMARIZE", "TABLE",   "THEN",      "TIMESTAMP", "TRUE",
    "UNION",    "UNIQUE",   "UPDATE",  "USING",     "VALUES",  "VARCHAR",   "VIEW",      "WHERE"};

constexpr const char* kNamesQuery =
    "SELECT DISTINCT name FROM (SELECT table_name AS name FROM duckdb_tables() WHERE NOT internal "
    "UNION ALL SELECT view_name FROM duckdb_views() WHERE NOT internal "
    "UNION ALL SELECT column_name FROM duckdb_columns() WHERE NOT internal "
    "UNION ALL SELECT schema_name FROM duckdb_schemas() WHERE NOT internal) ORDER BY name LIMIT 20000";

std::string Quote(std::string_view text, char quote) {
    std::string quoted(1, quote);
    for (const char c : text) {
        quoted.append(c == quote ? 2 : 1, c);
    }
    return quoted + quote;
}

bool IsKeyword(std::string_view name) {
    std::string upper(name);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return std::find(kKeywords.begin(), kKeywords.end(), upper) != kKeywords.end();
}

}  // namespace

std::span<const std::string_view> GetKeywords() {
    return kKeywords;
}

std::string QuoteText(std::string_view text) {
    return Quote(text, '\'');
}

std::string QuoteName(std::string_view name) {
    const bool is_plain = !name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0 &&
                          std::all_of(name.begin(), name.end(), [](unsigned char c) {
                              return std::islower(c) != 0 || std::isdigit(c) != 0 || c == '_';
                          });
    return is_plain && !IsKeyword(name) ? std::string(name) : Quote(name, '"');
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

std::vector<std::string> ListNames(const DatabasePtr& database) noexcept {
    try {
        return database == nullptr ? std::vector<std::string>() : QueryTexts(database, kNamesQuery);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace mduckdb_host
