#pragma once

#include "nbx/arrow_c_data.h"

namespace mduckdb {

/** Copies a schema with everything that it points to, so that the copy depends on nothing else. Each of its
    children can be moved out of it, unlike those of DuckDB's schemas. Throws `std::bad_alloc`; then `out` is
    unchanged. */
void CopyArrowSchema(const ArrowSchema& schema, ArrowSchema& out);

}  // namespace mduckdb
