#pragma once

#include <duckdb.h>

#include <string>
#include <string_view>

#include "duckdb_plain/holders.h"

namespace mduckdb {

/** A VARCHAR value of UTF-8 text, which may hold NUL characters. Empty for text that is not UTF-8. */
inline duckdb_plain::ValueHolder MakeTextValue(std::string_view text) {
    return duckdb_plain::ValueHolder(duckdb_create_varchar_length(text.data(), text.size()));
}

inline duckdb_plain::LogicalTypeHolder MakeType(duckdb_type type) {
    return duckdb_plain::LogicalTypeHolder(duckdb_create_logical_type(type));
}

/** The value cast to the type. Empty when that fails, with DuckDB's text, if it gives one, in `error`. */
duckdb_plain::ValueHolder CastTo(const duckdb_plain::ValueHolder& value,
                                 const duckdb_plain::LogicalTypeHolder& type, std::string& error);

/** Throws `xDuckDBError` for a value, which has no database at hand: `name` stands in place of the path. */
[[noreturn]] void ThrowValueError(const char* name, const std::string& message);

}  // namespace mduckdb
