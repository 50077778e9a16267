#pragma once

#include <duckdb.h>

#include <vector>

#include "base/holders.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "objects/database_link.h"

namespace mduckdb {

/** The results of one script, in the order of its statements; they belong to the list. */
using ResultList = std::vector<ResultHolder>;

/** Creates the head of a chain of query results, without a result yet. It is created before the statements
    run, since nothing may fail between a commit and its report. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> MakeQueryResult(SharedLink link, uint32_t cursor_location);
/** Gives it the results of the chain, which may be none. Throws if a cursor cannot be created or an error
    cannot be read; never if the first statement changed rows. */
void FillQueryResult(nbx::mrsql::I_DuckDBQueryResult& head, ResultList results);

}  // namespace mduckdb
