#pragma once

#include <duckdb.h>

#include <string>

namespace bench {

/** Operations for which DuckDB's C API exports no function, implemented as DuckDB would. The caller owns the
    values and destroys them. */

/** A cell as a new value. */
duckdb_value GetStockValue(duckdb_data_chunk chunk, idx_t column, idx_t row);
/** A text cast to a type without parameters. */
duckdb_value CastStockText(const std::string& text, duckdb_type type);
/** JSON text as a VARIANT. */
duckdb_value JsonToStockVariant(const std::string& text);

}  // namespace bench
