#include "duckdb_internals/rows_changed.h"

#include "duckdb_internals/result_chunks.h"

namespace mduckdb {

int64_t GetRowsChanged(duckdb_result* result) {
    if (duckdb_result_return_type(*result) != DUCKDB_RESULT_TYPE_CHANGED_ROWS) {
        return 0;
    }
    if (duckdb_row_count(result) == 1 && duckdb_column_count(result) == 1 &&
        duckdb_column_type(result, 0) == DUCKDB_TYPE_BIGINT) {
        ResultChunks chunks(*result);
        chunks.Load(chunks.FindRow(0));
        return *static_cast<const int64_t*>(chunks.get_Data(0));
    }
    return static_cast<int64_t>(duckdb_rows_changed(result));
}

}  // namespace mduckdb
