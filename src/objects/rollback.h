#pragma once

#include <duckdb.h>

#include "base/holders.h"

namespace mduckdb {

/** Ends the transaction that may be open on the connection. There may be none, so the outcome says nothing.
 */
inline void Rollback(duckdb_connection connection) noexcept {
    ResultHolder ignored;
    duckdb_query(connection, "ROLLBACK", ignored.Receive());
}

}  // namespace mduckdb
