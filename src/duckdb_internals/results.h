#pragma once

#include <duckdb.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "duckdb_internals/column_casts.h"

namespace mduckdb {

/** Reads the chunks of a computed result in any order, where DuckDB keeps them: `duckdb_result_get_chunk`
    allocates a chunk and copies all rows at every call, texts too. One chunk is loaded at a time. Not for two
    threads at once. */
class ResultChunks {
  public:
    /** Reads a result that the caller keeps and must not destroy while this object exists. Throws
        `std::runtime_error` when the result has no computed rows (a failed one, a streamed one). */
    explicit ResultChunks(const duckdb_result& result);
    /** The same, with the cells of some columns cast when their chunk is loaded. */
    ResultChunks(const duckdb_result& result, ColumnCasts casts);
    ResultChunks(ResultChunks&&) noexcept;
    ResultChunks& operator=(ResultChunks&&) noexcept;
    ~ResultChunks();

    idx_t get_Count() const noexcept;
    /** Number of rows of all chunks before this one; for `get_Count()`, of all. */
    idx_t get_FirstRow(idx_t chunk) const noexcept;
    /** The chunk that holds the row, which must be one of the result. */
    idx_t FindRow(idx_t row) const noexcept;

    /** Loads the chunk instead of the current one. Throws `std::runtime_error` with DuckDB's text, for
        example when spilled rows cannot be read back, or `std::bad_alloc`; then no chunk is loaded. */
    void Load(idx_t chunk);
    /** The column's cells in the loaded chunk, as `duckdb_vector_get_data` and `duckdb_vector_get_validity`
        return them; valid until the next `Load`. */
    const void* get_Data(idx_t column) const noexcept;
    const uint64_t* get_Validity(idx_t column) const noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/** How many rows the statement of this result changed, or 0 for a statement of another kind: the same as
    `duckdb_rows_changed`, which copies the rows into new chunks to read the one number. The caller keeps the
    result. Allocates nothing: the rows are committed by now, and a failure here would make the caller store
    them twice. */
int64_t GetRowsChanged(duckdb_result* result);

/** The column's whole name; `duckdb_column_name` ends at the first NUL. Nothing if there is no such column.
   Valid as long as the result. */
std::optional<std::string_view> GetColumnName(const duckdb_result& result, idx_t column) noexcept;

/** The rows that a result holds, and DuckDB's memory for them, whether it is spilled or not. */
struct ResultSize {
    int64_t rows;
    int64_t bytes;
};
/** Does not look at the rows. Nothing for a result that failed or is computed while it is read. */
ResultSize MeasureResult(const duckdb_result& result) noexcept;

/** Turns the failure of a pending result into a result with DuckDB's unchanged text, as executing in one call
    does; `duckdb_execute_pending` would prefix a sentence. The caller destroys the result. A pending result
    without an error becomes an empty result. Throws `std::bad_alloc`. */
void TakePendingError(duckdb_pending_result pending, duckdb_result* out_result);

}  // namespace mduckdb
