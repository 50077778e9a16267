#pragma once

#include <duckdb.h>

namespace mduckdb {

/** The number of pieces, from `first` on, into which DuckDB split the statement written there: 1 for most.
    Some statements come out of `duckdb_extract_statements` as several, with texts that DuckDB wrote: `ALTER
    TABLE ... DEFAULT now()` and `COPY FROM DATABASE` as BEGIN; ...; COMMIT, a PIVOT without IN as CREATE TYPE
    and SELECT. The statements from `first` on must not have been prepared yet. */
idx_t CountPieces(duckdb_extracted_statements statements, idx_t first);

/** Whether a transaction that a BEGIN opened is open on the connection. Nothing may run on the connection
    meanwhile. */
bool IsInTransaction(duckdb_connection connection) noexcept;

}  // namespace mduckdb
