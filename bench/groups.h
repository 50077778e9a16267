#pragma once

#include <vector>

#include "measure.h"

namespace bench {

/** Cells of W1 to W4 through the cursors, and random reads of a client cursor. */
std::vector<Group> GetDeliveryGroups(const Options& options);
/** Cells of files through fetch_parquet and fetch_duckdb, and random rows of a tall file. */
std::vector<Group> GetProcedureGroups(const Options& options);
/** Binds, repeated execution, multi-row runs, scripts. */
std::vector<Group> GetStatementGroups(const Options& options);
/** Opening and closing, backup and restore, the delay of an interrupt. */
std::vector<Group> GetLifecycleGroups(const Options& options);

}  // namespace bench
