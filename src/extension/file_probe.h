#pragma once

#include "nbx/location.h"

namespace mduckdb {

/** Whether the file has the mark of a DuckDB database or is empty; DuckDB turns an empty file into a database
    when it opens it. False for a file that cannot be read. Throws `std::bad_alloc` and nothing else. */
bool LooksLikeDuckDBFile(nbx::smart_ptr<nbx::I_Location> location);

}  // namespace mduckdb
