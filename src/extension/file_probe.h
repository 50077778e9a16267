#pragma once

#include "nbx/location.h"

namespace mduckdb {

/** Whether the file carries the mark of a DuckDB database, or is empty, which becomes one when it is opened.
    False for what cannot be read; never throws. */
bool LooksLikeDuckDBFile(nbx::smart_ptr<nbx::I_Location> location) noexcept;

}  // namespace mduckdb
