#include "duckdb_internals/chunk_rows.h"

#include <algorithm>
#include <new>
#include <utility>

namespace mduckdb {
namespace {

ChunkHolder MakeChunk(const std::vector<ColumnWriter>& columns) {
    std::vector<duckdb_logical_type> types;
    types.reserve(columns.size());
    for (const ColumnWriter& column : columns) {
        types.push_back(column.get_Type());
    }
    ChunkHolder chunk(duckdb_create_data_chunk(types.data(), types.size()));
    if (!chunk) {
        throw std::bad_alloc();
    }
    return chunk;
}

}  // namespace

ChunkRows::ChunkRows(duckdb_connection connection, std::vector<LogicalTypeHolder> types)
    : chunk_size_(duckdb_vector_size()) {
    columns_.reserve(types.size());
    for (LogicalTypeHolder& type : types) {
        columns_.emplace_back(connection, std::move(type), heap_bytes_);
        row_width_ += columns_.back().get_Width();
    }
}

idx_t ChunkRows::Open() {
    if (!is_attached_) {
        if (full_chunks_ == chunks_.size()) {
            chunks_.push_back(MakeChunk(columns_));
        }
        for (idx_t i = 0; i < columns_.size(); ++i) {
            columns_[i].Attach(duckdb_data_chunk_get_vector(chunks_[full_chunks_].get(), i));
        }
        is_attached_ = true;
    }
    return chunk_size_ - rows_;
}

void ChunkRows::Keep(idx_t count) noexcept {
    rows_ += count;
    duckdb_data_chunk_set_size(chunks_[full_chunks_].get(), rows_);
    if (rows_ == chunk_size_) {
        ++full_chunks_;
        rows_ = 0;
        is_attached_ = false;
    }
}

void ChunkRows::Undo(idx_t count) noexcept {
    for (ColumnWriter& column : columns_) {
        for (idx_t i = 0; i < count; ++i) {
            column.ClearNull(rows_ + i);
        }
    }
}

void ChunkRows::Clear() noexcept {
    for (const ChunkHolder& chunk : chunks_) {
        duckdb_data_chunk_reset(chunk.get());
    }
    full_chunks_ = 0;
    rows_ = 0;
    heap_bytes_ = 0;
    is_attached_ = false;
}

bool ChunkRows::AppendTo(duckdb_appender appender, idx_t count) const noexcept {
    for (const ChunkHolder& chunk : chunks_) {
        const idx_t size = duckdb_data_chunk_get_size(chunk.get());
        const idx_t taken = std::min(size, count);
        if (taken == 0) {
            break;
        }
        duckdb_data_chunk_set_size(chunk.get(), taken);
        const duckdb_state state = duckdb_append_data_chunk(appender, chunk.get());
        duckdb_data_chunk_set_size(chunk.get(), size);
        if (state != DuckDBSuccess) {
            return false;
        }
        count -= taken;
    }
    return true;
}

}  // namespace mduckdb
