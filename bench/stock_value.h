#pragma once

#include <duckdb.h>

#include <string>

namespace bench {

/** What DuckDB can do and exports no function of its C API for: made as it would make it. The values are the
    caller's, who destroys them. */

/** A cell as a new value. */
duckdb_value GetStockValue(duckdb_data_chunk chunk, idx_t column, idx_t row);
/** A text cast to a type without parameters. */
duckdb_value CastStockText(const std::string& text, duckdb_type type);
/** JSON text as a VARIANT. */
duckdb_value JsonToStockVariant(const std::string& text);

}  // namespace bench
