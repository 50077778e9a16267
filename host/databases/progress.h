#pragma once

#include <string>

#include "databases/databases.h"
#include "nbx/mrsql/duckdb_progress.h"

namespace mduckdb_host {

/** Has DuckDB count the progress of the database's statements; null for a module that cannot tell it. */
nbx::mrsql::I_DuckDBProgress* TrackProgress(const DatabasePtr& database);

/** A bar and the percentage, for example "██████░░░░░░░░░░░░░░ 31%"; empty while the share is unknown. */
std::string DescribeProgress(const nbx::mrsql::DuckDBProgress& progress);

}  // namespace mduckdb_host
