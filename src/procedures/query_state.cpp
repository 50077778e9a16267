#include "procedures/query_state.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "procedures/procedures.h"

namespace mduckdb {
namespace {

QueryState& StateOf(void* state) noexcept {
    return *static_cast<QueryState*>(state);
}

void CloseCursor(void* state) noexcept {
    delete static_cast<QueryState*>(state);
}

mirona_value GetCursorValue(mirona_call call, void* state, std::int32_t column) noexcept {
    return StateOf(state).GetValue(call, column);
}

std::uint32_t GoToCursorRow(void* state, std::int64_t row) noexcept {
    return StateOf(state).GoToRow(row);
}

std::uint32_t GoToNextCursorRow(void* state) noexcept {
    return StateOf(state).NextRow();
}

std::uint64_t GetCursorRowCount(void* state) noexcept {
    return StateOf(state).get_RowCount();
}

}  // namespace

QueryState::QueryState(PrivateEngine engine, std::vector<ColumnRecord> columns,
                       duckdb_plain::ResultHolder result)
    : engine_(std::move(engine)),
      result_(std::move(result)),
      columns_(std::move(columns)),
      row_count_(duckdb_row_count(result_.get())),
      api_(&GetApi()) {
    for (const ColumnRecord& column : columns_) {
        const CellStorage storage = GetColumnStorage(*result_.get(), loaded_.size());
        loaded_.push_back({ChooseCellReader(column.normalised_type, storage), nullptr, nullptr});
        host_columns_.push_back({column.name.data(), column.name.size(),
                                 static_cast<std::uint32_t>(column.normalised_type),
                                 static_cast<std::uint32_t>(column.host_type)});
    }
    IndexChunks();
}

void QueryState::IndexChunks() {
    const idx_t count = duckdb_result_chunk_count(*result_);
    first_rows_.reserve(count);
    idx_t first_row = 0;
    for (idx_t i = 0; i < count; ++i) {
        const duckdb_plain::ChunkHolder chunk(duckdb_result_get_chunk(*result_, i));
        if (!chunk) {
            throw std::runtime_error("Unable to access DuckDB result chunk.");
        }
        first_rows_.push_back(first_row);
        first_row += duckdb_data_chunk_get_size(chunk.get());
    }
}

mirona_cursor_def QueryState::MakeCursorDef() noexcept {
    return {this,
            &CloseCursor,
            &GetCursorValue,
            &GoToCursorRow,
            &GoToNextCursorRow,
            &GetCursorRowCount,
            static_cast<std::uint32_t>(host_columns_.size()),
            host_columns_.data()};
}

mirona_value QueryState::GetValue(mirona_call call, std::int32_t column) const noexcept {
    // A negative index becomes a large one.
    const auto index = static_cast<std::uint32_t>(column);
    if (!chunk_ || index >= loaded_.size()) {
        return nullptr;
    }
    const LoadedColumn& cells = loaded_[index];
    if (cells.validity != nullptr && (cells.validity[row_in_chunk_ / 64] >> (row_in_chunk_ % 64) & 1) == 0) {
        return nullptr;
    }
    return cells.read(*api_, call, cells.data, row_in_chunk_);
}

std::uint32_t QueryState::GoToRow(std::int64_t row) noexcept {
    const auto target = static_cast<idx_t>(row);
    if (row < 0 || target >= row_count_ || (!IsLoaded(target) && !LoadChunkOf(target))) {
        return MIRONA_ROW_END;
    }
    row_ = target;
    row_in_chunk_ = target - chunk_begin_;
    is_started_ = true;
    return MIRONA_ROW_OK;
}

std::uint32_t QueryState::NextRow() noexcept {
    const idx_t next = is_started_ ? row_ + 1 : 0;
    return next >= row_count_ ? MIRONA_ROW_END : GoToRow(static_cast<std::int64_t>(next));
}

bool QueryState::LoadChunkOf(idx_t row) noexcept {
    chunk_.Reset();
    try {
        const auto after = std::upper_bound(first_rows_.begin(), first_rows_.end(), row);
        const auto index = static_cast<idx_t>(after - first_rows_.begin()) - 1;
        duckdb_plain::ChunkHolder chunk(duckdb_result_get_chunk(*result_, index));
        if (!chunk) {
            return false;
        }
        for (idx_t i = 0; i < loaded_.size(); ++i) {
            const duckdb_vector vector = duckdb_data_chunk_get_vector(chunk.get(), i);
            loaded_[i].data = duckdb_vector_get_data(vector);
            loaded_[i].validity = duckdb_vector_get_validity(vector);
        }
        chunk_begin_ = first_rows_[index];
        chunk_end_ = chunk_begin_ + duckdb_data_chunk_get_size(chunk.get());
        chunk_ = std::move(chunk);
    } catch (...) {  // DuckDB out of memory: the callback has no way to say more than that there is no row
        return false;
    }
    return true;
}

}  // namespace mduckdb
