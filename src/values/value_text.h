#pragma once

#include <duckdb.h>

#include <string>
#include <string_view>

#include "nbx/value.h"

namespace mduckdb {

/** DuckDB's text of a value, UTF-8 and whole, NUL characters included. Empty for a null handle, for
    NULL, and for what has no text: a number that is no value of its type, say. */
std::string DuckDBValueToText(duckdb_value value);

/** A host String value, never null, with the UTF-8 text. */
nbx::smart_ptr<nbx::I_Value> MakeStringValue(std::string_view text);

/** A host String value with DuckDB's text of the value. */
nbx::smart_ptr<nbx::I_Value> MakeTextOfValue(duckdb_value value);

}  // namespace mduckdb
