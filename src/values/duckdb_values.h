#pragma once

#include <duckdb.h>

#include <string>
#include <string_view>

#include "base/holders.h"

namespace mduckdb {

/** A VARCHAR value of UTF-8 text, which may hold NUL characters. Empty for text that is not UTF-8. */
inline ValueHolder MakeTextValue(std::string_view text) {
    return ValueHolder(duckdb_create_varchar_length(text.data(), text.size()));
}

inline LogicalTypeHolder MakeType(duckdb_type type) {
    return LogicalTypeHolder(duckdb_create_logical_type(type));
}

/** The value cast to the type. Empty when that fails, with DuckDB's text, if it gives one, in `error`. */
ValueHolder CastTo(const ValueHolder& value, const LogicalTypeHolder& type, std::string& error);

/** Throws `xDuckDBError` for a value, which has no database at hand: `name` stands in place of the path. */
[[noreturn]] void ThrowValueError(const char* name, const std::string& message);

}  // namespace mduckdb
