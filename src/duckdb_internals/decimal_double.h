#pragma once

#include <duckdb.h>

#include <cstdint>

/* DECIMALs as doubles, identical to DuckDB's cast to the last bit. */
namespace mduckdb {

/** `number` / 10^`scale`; the scale is 0 to 18. */
double DecimalToDouble(int64_t number, uint8_t scale);

/** The same for a scale of 0 to 38; the number has up to 38 digits. */
double WideDecimalToDouble(duckdb_hugeint number, uint8_t scale);

}  // namespace mduckdb
