#pragma once

#include <duckdb.h>

#include <boost/container/small_vector.hpp>

#include "base/holders.h"
#include "nbx/value.h"

namespace mduckdb {

/** The error for a host value that cannot be bound when DuckDB reports no reason. */
constexpr const char* kBindFailureText = "Failed to bind statement parameter";

enum class BindOutcome {
    bound,
    /** DuckDB failed, and has a text or has none (`duckdb_prepare_error`). */
    refused_by_duckdb,
    /** DuckDB was not called; the text that it still has belongs to an older failure. */
    no_value,
};

/** Binds what `HostValueToDuckDB` made of one host value to a parameter, counted from 1. */
BindOutcome BindParameter(duckdb_prepared_statement prepared, idx_t index, const ValueHolder& made);

/** The values of a row of parameters, read before any of them is bound. Reading runs the host's code, which
    may wait for the engine lock or close the database: so it needs no prepared statement, and must not
    happen under a lock that is taken after the engine lock. */
class ParameterValues {
  public:
    /** A null row has no values. Throws as `HostValueToDuckDB` does. */
    explicit ParameterValues(const nbx::ValueRow* row);
    /** Binds element i to parameter i + 1, in order. Throws `xDuckDBError`, with `database_path`, for a bind
        that failed; parameters bound before the failing one stay bound. */
    void Bind(duckdb_prepared_statement prepared, const nbx::String& database_path) const;

  private:
    static constexpr std::size_t kInlineValues = 16;
    /** Empty for what cannot be converted. */
    boost::container::small_vector<ValueHolder, kInlineValues> values_;
};

}  // namespace mduckdb
