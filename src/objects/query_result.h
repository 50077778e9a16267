#pragma once

#include <duckdb.h>

#include <vector>

#include "base/holders.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "objects/database_link.h"

namespace mduckdb {

/** The results of one script, in the order of its statements; they belong to the list. */
using ResultList = std::vector<ResultHolder>;

/** Creates the head of the chain of query results over a list, which may be empty. Takes ownership of the
    list. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> MakeQueryResult(SharedLink link, ResultList results,
                                                                uint32_t cursor_location);

}  // namespace mduckdb
