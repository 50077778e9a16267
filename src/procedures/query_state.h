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

/** A result column, described for the host. */
struct ColumnRecord {
    std::string name;
    std::int32_t normalised_type;
    std::int32_t host_type;
    /** Whether the cells are cast to the normalised type before they are read. */
    bool is_cast;
};

/** A finished result and the position of the host's cursor in it. The cursor owns it once there is one; the
    engine of the result lives as long as this object. One chunk of the result is loaded at a time. The host
    uses one thread at a time. */
class QueryState {
  public:
    /** Throws when DuckDB does not return the result's chunks. */
    QueryState(PrivateEngine engine, std::vector<ColumnRecord> columns, ResultHolder result);
    QueryState(const QueryState&) = delete;
    QueryState& operator=(const QueryState&) = delete;

    /** The callbacks for this state, and its columns. */
    mirona_cursor_def MakeCursorDef() noexcept;

    /** Null for NULL, for a column that does not exist, and while the cursor is not on a row. */
    mirona_value GetValue(mirona_call call, std::int32_t column) noexcept;
    /** Returns MIRONA_ROW_END and keeps the position for a row that does not exist or that DuckDB cannot
        read; the reason is then reported to the host. */
    std::uint32_t GoToRow(std::int64_t row) noexcept;
    std::uint32_t NextRow() noexcept;
    /** False when the call's time is over, which is reported to the host once. */
    bool IsInTime() noexcept;
    std::uint64_t get_RowCount() const noexcept { return row_count_; }

  private:
    /** Where the cells of a column of the loaded chunk are; `validity` is null when none is NULL. */
    struct LoadedColumn {
        CellPacker pack;
        const void* data;
        const std::uint64_t* validity;
    };

    bool LoadChunkOf(idx_t row) noexcept;
    /** When the chunk of another row could not be loaded, the cursor still stands on the one before. */
    bool LoadCurrentChunk() noexcept;

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
    /** The current row, once the cursor has started. */
    idx_t row_ = 0;
    bool is_started_ = false;
    bool is_end_reported_ = false;
};

}  // namespace mduckdb
