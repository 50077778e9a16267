#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "databases.h"

namespace mduckdb_host {

/** The words of SQL that are worth completing, in capitals. */
std::span<const std::string_view> GetKeywords();

/** The text as a SQL string literal, with its quotes. */
std::string QuoteText(std::string_view text);
/** The name as it stands in SQL: in quotes unless it is a plain lower-case word. */
std::string QuoteName(std::string_view name);

/** The first column of a query, as text. Throws the host's exceptions. */
std::vector<std::string> QueryTexts(const DatabasePtr& database, const std::string& sql);

/** Names of the tables, views and columns of a database; empty when they cannot be read now. */
std::vector<std::string> ListNames(const DatabasePtr& database) noexcept;

}  // namespace mduckdb_host
