#pragma once

#include <duckdb.h>

#include <string>

#include "base/holders.h"
#include "duckdb_internals/column_writer.h"
#include "nbx/value.h"
#include "values/host_value_walk.h"

namespace mduckdb {

/** The error for a host value that cannot be bound when DuckDB reports no reason. */
constexpr const char* kBindFailureText = "Failed to bind statement parameter";
/** The error for a host value that cannot be appended, in the cases of `BindOutcome::no_value`. */
constexpr const char* kUnconvertibleText = "The value cannot become a DuckDB value";

/** One host value as a DuckDB value; a null pointer and a null value become NULL. An empty holder means that
    the value cannot be converted, which is an error and never NULL: an array with an element of another type,
    a value that contains itself or is nested too deep, a time outside a day. Throws `xDuckDBError` when there
    is a reason to report. */
ValueHolder HostValueToDuckDB(nbx::I_Value* value);

/** Stores one host value in a row of a column, as an INSERT with the value as its parameter would. False and
    a text if it cannot be converted or cast. Throws as `HostValueToDuckDB` does. */
bool StoreHostValue(nbx::I_Value* value, ColumnWriter& column, idx_t row, std::string& error);

enum class BindOutcome {
    bound,
    /** DuckDB failed, and has a text or has none (`duckdb_prepare_error`). */
    refused_by_duckdb,
    /** DuckDB was not called; the text that it still has belongs to an older failure. */
    no_value,
};

/** Binds one host value to a parameter, counted from 1. Throws as `HostValueToDuckDB` does. */
BindOutcome BindHostValue(duckdb_prepared_statement prepared, idx_t index, nbx::I_Value* value);

/** Binds element i to parameter i + 1, in order; a null row binds nothing. Throws `xDuckDBError`, with
    `database_path` for a bind that failed; parameters bound before the failing one stay bound. */
void BindValueArray(duckdb_prepared_statement prepared, const nbx::ValueRow* values,
                    const nbx::String& database_path);

}  // namespace mduckdb
