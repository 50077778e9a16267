#pragma once

#include "nbx/mrsql/duckdb_extension.h"

namespace mduckdb {

/** The module's root object, with a reference count of 0. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> MakeExtension();

}  // namespace mduckdb
