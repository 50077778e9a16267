#pragma once

#include <duckdb.h>

#include "base/holders.h"

namespace mduckdb {

/** Rolls back the transaction of the connection, if there is one. The outcome is ignored, since it fails
 without a transaction. */
inline void Rollback(duckdb_connection connection) noexcept {
    ResultHolder ignored;
    duckdb_query(connection, "ROLLBACK", ignored.Receive());
}

}  // namespace mduckdb
