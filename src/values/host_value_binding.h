#pragma once

#include <duckdb.h>

#include <string>

#include "base/holders.h"
#include "duckdb_internals/column_writer.h"
#include "nbx/value.h"
#include "values/host_value_walk.h"

namespace mduckdb {

/** The error for a host value that cannot be appended. */
constexpr const char* kUnconvertibleText = "The value cannot become a DuckDB value";

/** One host value as a DuckDB value; a null pointer and a null value become NULL. An empty holder means that
    the value cannot be converted, which is an error and never NULL: an array with an element of another type,
    a value that contains itself or is nested too deep, a time outside a day. Throws `xDuckDBError` when there
    is a reason to report. */
ValueHolder HostValueToDuckDB(nbx::I_Value* value);

/** Stores one host value in a row of a column, as an INSERT with the value as its parameter would. False and
    a text if it cannot be converted or cast. Throws as `HostValueToDuckDB` does. */
bool StoreHostValue(nbx::I_Value* value, ColumnWriter& column, idx_t row, std::string& error);

}  // namespace mduckdb
