#pragma once

#include <span>
#include <string>
#include <string_view>

namespace mduckdb_host {

/** The SQL keywords that are worth completing, in capitals. */
std::span<const std::string_view> GetKeywords();

/** Whether it is one of them, in any case. */
bool IsKeyword(std::string_view name);

/** The name as a SQL identifier: quoted unless it is a plain lower-case word. */
std::string QuoteName(std::string_view name);

}  // namespace mduckdb_host
