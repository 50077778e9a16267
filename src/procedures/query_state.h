#pragma once

#include <duckdb.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/holders.h"
#include "duckdb_internals/results.h"
#include "mirona/extension_api.h"
#include "procedures/cell_values.h"
#include "procedures/private_engine.h"

namespace mduckdb {

/** A result column as the host sees it. */
struct ColumnRecord {
    std::string name;
    std::int32_t normalised_type;
    std::int32_t host_type;
    /** Whether the cells are cast to the normalised type before they are read. */
    bool is_cast;
};

/** A finished result and the position of the host's cursor in it. Owned by the cursor once there is one; the
    engine that made the result lives as long as it. One chunk of the result is loaded at a time. The host
    calls on one thread at a time. */
class QueryState {
  public:
    /** Throws when DuckDB does not give the result's chunks. */
    QueryState(PrivateEngine engine, std::vector<ColumnRecord> columns, ResultHolder result);
    QueryState(const QueryState&) = delete;
    QueryState& operator=(const QueryState&) = delete;

    /** The callbacks over this state, and its columns. */
    mirona_cursor_def MakeCursorDef() noexcept;

    /** Null for NULL, for a column that is not there, and while the cursor stands on no row. */
    mirona_value GetValue(mirona_call call, std::int32_t column) const noexcept;
    /** MIRONA_ROW_END, with the position as it was, for a row that is not there or that DuckDB does not give;
        why not is then reported to the host. */
    std::uint32_t GoToRow(std::int64_t row) noexcept;
    std::uint32_t NextRow() noexcept;
    std::uint64_t get_RowCount() const noexcept { return row_count_; }

  private:
    /** Where the cells of a column of the loaded chunk are; `validity` is null when none is NULL. */
    struct LoadedColumn {
        CellPacker pack;
        const void* data;
        const std::uint64_t* validity;
    };

    bool LoadChunkOf(idx_t row) noexcept;

    // Destroyed from the last to the first: chunks, result, engine.
    PrivateEngine engine_;
    ResultHolder result_;
    std::vector<ColumnRecord> columns_;
    std::vector<mirona_column> host_columns_;
    idx_t row_count_;

    ResultChunks chunks_;
    /** Rows of the loaded chunk; from 0 to 0 while none is loaded. */
    idx_t chunk_begin_ = 0;
    idx_t chunk_end_ = 0;
    std::vector<LoadedColumn> loaded_;
    const mirona_extension_api* api_;
    /** The current row, unless the cursor has not started. */
    idx_t row_ = 0;
    bool is_started_ = false;
};

}  // namespace mduckdb
