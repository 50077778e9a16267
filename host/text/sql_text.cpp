#include "text/sql_text.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "nbx/sql_text.h"

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

}  // namespace

std::span<const std::string_view> GetKeywords() {
    return kKeywords;
}

bool IsKeyword(std::string_view name) {
    std::string upper(name);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return std::find(kKeywords.begin(), kKeywords.end(), upper) != kKeywords.end();
}

std::string QuoteName(std::string_view name) {
    const bool is_plain = !name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0 &&
                          std::all_of(name.begin(), name.end(), [](unsigned char c) {
                              return std::islower(c) != 0 || std::isdigit(c) != 0 || c == '_';
                          });
    return is_plain && !IsKeyword(name) ? std::string(name) : nbx::QuoteIdentifier(name);
}

}  // namespace mduckdb_host
