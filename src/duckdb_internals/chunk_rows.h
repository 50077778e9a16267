#pragma once

#include <duckdb.h>

#include <vector>

#include "base/holders.h"
#include "duckdb_internals/column_writer.h"
#include "nbx/unknown.h"

namespace mduckdb {

/** Rows that are collected in chunks, which are kept for the next rows when they are cleared. Not for two
    threads at once. */
class ChunkRows : nbx::noncopyable {
  public:
    /** The chunks that are collected at most. Together they have as many rows as DuckDB puts into a row
        group. */
    static constexpr std::size_t kMostChunks = 60;
    /** The memory that is collected, about; fewer rows if they are wide or their texts are long. */
    static constexpr uint64_t kMostBytes = uint64_t{64} << 20;

    /** Throws `std::bad_alloc`. */
    ChunkRows(duckdb_connection connection, std::vector<LogicalTypeHolder> types);

    idx_t get_Count() const noexcept { return full_chunks_ * chunk_size_ + rows_; }
    bool get_IsFull() const noexcept { return full_chunks_ == kMostChunks || get_Bytes() >= kMostBytes; }
    uint64_t get_Bytes() const noexcept { return get_Count() * row_width_ + heap_bytes_; }
    std::vector<ColumnWriter>& get_Columns() noexcept { return columns_; }

    /** Attaches the columns to the place of the next rows; returns how many rows there is room for, at least
        one. They begin at `get_Row` of the columns. The rows must not be full. Throws `std::bad_alloc`. */
    idx_t Open() {
        if (!is_attached_) {
            Attach();
        }
        return chunk_size_ - rows_;
    }
    idx_t get_Row() const noexcept { return rows_; }
    /** The next rows, at most as many as `Open` returned, are complete. */
    void Keep(idx_t count) noexcept {
        rows_ += count;
        if (rows_ == chunk_size_) {
            ++full_chunks_;
            rows_ = 0;
            is_attached_ = false;
        }
    }
    /** The next rows, which were stored in part, are stored again. */
    void Undo(idx_t count) noexcept;
    void Clear() noexcept;

    /** Appends the first rows, or all, to the appender; false when it refuses them. */
    bool AppendTo(duckdb_appender appender, idx_t count) const noexcept;

  private:
    void Attach();

    std::vector<ColumnWriter> columns_;
    /** Of the elements with a fixed size. */
    uint64_t row_width_ = 0;
    /** Of the others, those of rows that were stored again too. */
    uint64_t heap_bytes_ = 0;
    std::vector<ChunkHolder> chunks_;
    const idx_t chunk_size_;
    std::size_t full_chunks_ = 0;
    /** Of the chunk after the full ones. */
    idx_t rows_ = 0;
    bool is_attached_ = false;
};

}  // namespace mduckdb
