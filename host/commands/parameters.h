#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "data/datum.h"
#include "databases/databases.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "nbx/value.h"

namespace mduckdb_host {

/** The value of `--param`. Throws `xUsageError`. */
Datum ParseParameter(const std::string& text);

/** The parameters of one run of a statement. */
struct ParameterRow {
    /** Of the file, counted from 1. */
    uint64_t line;
    nbx::smart_ptr<nbx::ValueRow> values;
};

/** Reads the file, or the standard input for `-`: one JSON array per line. Throws `xUsageError`. */
std::vector<ParameterRow> ReadParameterFile(const std::string& name);

/** How far the runs of a statement came. */
struct RowProgress {
    /** Of the row that runs; 0 before the first. */
    uint64_t line = 0;
    uint64_t rows_done = 0;
};

/** Runs the statement once for each row; returns the result of the last run, or null if there are no rows.
    Stops between two rows, with null, when `is_stopped` returns true. Throws the host's exceptions. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> RunForEachRow(
    const DatabasePtr& database, const nbx::String& sql, uint32_t cursor_location,
    const std::vector<ParameterRow>& rows, const std::function<bool()>& is_stopped, RowProgress& progress);

/** A sentence for people: which row did not run, and what became of those before it. */
std::string DescribeProgress(const RowProgress& progress);

}  // namespace mduckdb_host
