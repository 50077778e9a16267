#pragma once

#include <duckdb.h>

#include "base/holders.h"

/* Functions in the manner of DuckDB's C API for results whose rows DuckDB's buffer manager holds. They throw
   `std::bad_alloc`, and nothing else. */

extern "C" {

/** The position of a reader of a result, with the pins that keep its rows in memory. */
typedef struct duckdb_result_scan_data {
    void* internal_ptr;
} * duckdb_result_scan;

/** Like `duckdb_pending_prepared`, for a managed result: its rows count towards the engine's memory limit and
    are spilled to its temporary directory, so a large result neither exceeds the limit nor exhausts the
    process's memory. The result and its scan must be destroyed before the engine is closed. */
duckdb_state duckdb_pending_prepared_managed(duckdb_prepared_statement prepared,
                                             duckdb_pending_result* out_result);

/** The same, for a result whose rows DuckDB computes while they are read, no further ahead than its setting
    `streaming_buffer_size`. Another statement on the connection ends it, and so does destroying it, which
   must happen before the connection is closed. The C API's own function is deprecated. */
duckdb_state duckdb_pending_prepared_stream(duckdb_prepared_statement prepared,
                                            duckdb_pending_result* out_result);

/** Runs a stream that was opened until its first rows are there, unless DuckDB has done so. `DuckDBError`
   when it failed before, with the error in the result. */
duckdb_state duckdb_await_stream(duckdb_result* result);

/** Moves a small result's rows to plain memory: the buffer manager's smallest block, of 256 KiB, is much for
   a result of one row that lives long, and thousands of them would be spilled. To be called before the result
   is read. Does nothing when memory is short. */
void duckdb_compact_result(duckdb_result* result);

/** Null when memory is short. */
duckdb_result_scan duckdb_create_result_scan(void);
void duckdb_destroy_result_scan(duckdb_result_scan* scan);
/** The result's next chunk, or null at the end and after a failure. If reading computed rows fails,
   `out_error` receives the text, to be freed; the error of a result that is computed while it is read stays
   in the result. The chunk depends neither on the result nor on the engine, unlike that of
   `duckdb_fetch_chunk`; but with `in_place` its rows may be the result's own, which nobody may change, and
   which are there until the scan goes on or either of them is destroyed. */
duckdb_data_chunk duckdb_scan_result_chunk(duckdb_result result, duckdb_result_scan scan, bool in_place,
                                           char** out_error);
}

namespace mduckdb {

struct ResultScanTraits {
    using Handle = duckdb_result_scan;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_result_scan(&handle); }
};
using ResultScanHolder = Holder<ResultScanTraits>;

}  // namespace mduckdb
