#pragma once

#include <duckdb.h>

#include "duckdb_plain/holders.h"
#include "nbx/string.h"
#include "nbx/value.h"

namespace mduckdb {

/** One host value as a DuckDB value; a null pointer and a null value become NULL. Throws `xDuckDBError`
    for what cannot be bound. Never gives a null holder. */
duckdb_plain::ValueHolder HostValueToDuckDB(nbx::I_Value* value);

/** Binds element i to parameter i + 1, in order; a null row binds nothing. Throws `xDuckDBError` with
    the given path; parameters bound before the failing one stay bound. */
void BindValueArray(duckdb_prepared_statement prepared, const nbx::ValueRow* values, const nbx::String& path);

}  // namespace mduckdb
