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

void ChunkRows::Attach() {
    if (full_chunks_ == chunks_.size()) {
        chunks_.push_back(MakeChunk(columns_));
    }
    for (idx_t i = 0; i < columns_.size(); ++i) {
        columns_[i].Attach(duckdb_data_chunk_get_vector(chunks_[full_chunks_].get(), i));
    }
    is_attached_ = true;
}

void ChunkRows::Undo(idx_t count) noexcept {
    for (ColumnWriter& column : columns_) {
        for (idx_t i = 0; i < count; ++i) {
            column.ClearNull(rows_ + i);
        }
    }
}

void ChunkRows::Clear() noexcept {
    const std::size_t used = full_chunks_ + (is_attached_ ? 1 : 0);
    for (std::size_t i = 0; i < used; ++i) {
        duckdb_data_chunk_reset(chunks_[i].get());
    }
    full_chunks_ = 0;
    rows_ = 0;
    heap_bytes_ = 0;
    is_attached_ = false;
}

bool ChunkRows::AppendTo(duckdb_appender appender, idx_t count) const noexcept {
    count = std::min(count, get_Count());
    for (std::size_t i = 0; count > 0; ++i) {
        const idx_t taken = std::min(chunk_size_, count);
        duckdb_data_chunk_set_size(chunks_[i].get(), taken);
        if (duckdb_append_data_chunk(appender, chunks_[i].get()) != DuckDBSuccess) {
            return false;
        }
        count -= taken;
    }
    return true;
}

}  // namespace mduckdb
