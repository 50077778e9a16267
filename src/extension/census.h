#pragma once

#include <vector>

#include "base/census.h"

namespace mduckdb {

/** Implements `I_DuckDBCensus::List`, in its order. Throws `std::bad_alloc`. */
std::vector<CensusLine> TakeCensus();

}  // namespace mduckdb
