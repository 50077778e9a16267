#pragma once

#include <vector>

#include "base/census.h"

namespace mduckdb {

/** As `I_DuckDBCensus::List` has it, in its order. Throws `std::bad_alloc`. */
std::vector<CensusLine> TakeCensus();

}  // namespace mduckdb
