#include "procedures/query_state.h"

#include <cstring>
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

std::uint32_t GoToCursorRowInTime(void* state, std::int64_t row) noexcept {
    return StateOf(state).IsInTime() ? StateOf(state).GoToRow(row) : MIRONA_ROW_END;
}

std::uint32_t GoToNextCursorRowInTime(void* state) noexcept {
    return StateOf(state).IsInTime() ? StateOf(state).NextRow() : MIRONA_ROW_END;
}

std::uint64_t GetCursorRowCount(void* state) noexcept {
    return StateOf(state).get_RowCount();
}

/** The callbacks belong to no call, so they report under the host's own handle. */
void ReportLostRow(const char* text) noexcept {
    GetApi().report_error(GetHost(), text, std::strlen(text));
}

std::vector<duckdb_type> CastTargets(const std::vector<ColumnRecord>& columns) {
    std::vector<duckdb_type> targets;
    targets.reserve(columns.size());
    for (const ColumnRecord& column : columns) {
        targets.push_back(column.is_cast ? static_cast<duckdb_type>(column.normalised_type)
                                         : DUCKDB_TYPE_INVALID);
    }
    return targets;
}

CellStorage StorageOf(const ColumnRecord& column, duckdb_result& result, idx_t index) {
    return column.is_cast ? GetCellStorage(column.normalised_type) : GetColumnStorage(result, index);
}

}  // namespace

QueryState::QueryState(PrivateEngine engine, std::vector<ColumnRecord> columns, ResultHolder result)
    : engine_(std::move(engine)),
      result_(std::move(result)),
      columns_(std::move(columns)),
      row_count_(duckdb_row_count(result_.get())),
      chunks_(*result_, ColumnCasts(engine_.get_Connection(), CastTargets(columns_))),
      api_(&GetApi()) {
    for (const ColumnRecord& column : columns_) {
        const CellStorage storage = StorageOf(column, *result_.get(), loaded_.size());
        loaded_.push_back({ChooseCellPacker(column.normalised_type, storage), nullptr, nullptr});
        host_columns_.push_back({column.name.data(), column.name.size(),
                                 static_cast<std::uint32_t>(column.normalised_type),
                                 static_cast<std::uint32_t>(column.host_type)});
    }
}

mirona_cursor_def QueryState::MakeCursorDef() noexcept {
    // A cursor without a time limit does not pay for it at each row.
    const bool is_timed = engine_.get_Time().get_IsLimited();
    return {this,
            &CloseCursor,
            &GetCursorValue,
            is_timed ? &GoToCursorRowInTime : &GoToCursorRow,
            is_timed ? &GoToNextCursorRowInTime : &GoToNextCursorRow,
            &GetCursorRowCount,
            static_cast<std::uint32_t>(host_columns_.size()),
            host_columns_.data()};
}

mirona_value QueryState::GetValue(mirona_call call, std::int32_t column) noexcept {
    // A negative index becomes a large one.
    const auto index = static_cast<std::uint32_t>(column);
    if (index >= loaded_.size() || (chunk_begin_ == chunk_end_ && !LoadCurrentChunk())) {
        return nullptr;
    }
    const idx_t row = row_ - chunk_begin_;
    const LoadedColumn& cells = loaded_[index];
    if (cells.validity != nullptr && (cells.validity[row / 64] >> (row % 64) & 1) == 0) {
        return nullptr;
    }
    return cells.pack(*api_, call, cells.data, row);
}

std::uint32_t QueryState::GoToRow(std::int64_t row) noexcept {
    const auto target = static_cast<idx_t>(row);
    const bool is_loaded = target - chunk_begin_ < chunk_end_ - chunk_begin_;
    if (!is_loaded && (row < 0 || target >= row_count_ || !LoadChunkOf(target))) {
        return MIRONA_ROW_END;
    }
    row_ = target;
    is_started_ = true;
    return MIRONA_ROW_OK;
}

bool QueryState::IsInTime() noexcept {
    if (!engine_.get_Time().IsOver()) {
        return true;
    }
    if (!std::exchange(is_end_reported_, true)) {
        try {
            ReportLostRow(engine_.get_Time().DescribeEnd().c_str());
        } catch (const std::exception&) {
            ReportLostRow("Unexpected error while reading a row.");
        }
    }
    return false;
}

std::uint32_t QueryState::NextRow() noexcept {
    const idx_t next = is_started_ ? row_ + 1 : 0;
    return GoToRow(static_cast<std::int64_t>(next));
}

bool QueryState::LoadCurrentChunk() noexcept {
    return is_started_ && LoadChunkOf(row_);
}

bool QueryState::LoadChunkOf(idx_t row) noexcept {
    chunk_begin_ = chunk_end_ = 0;
    try {
        const idx_t index = chunks_.FindRow(row);
        chunks_.Load(index);
        for (idx_t i = 0; i < loaded_.size(); ++i) {
            loaded_[i].data = chunks_.get_Data(i);
            loaded_[i].validity = chunks_.get_Validity(i);
        }
        chunk_begin_ = chunks_.get_FirstRow(index);
        chunk_end_ = chunks_.get_FirstRow(index + 1);
    } catch (const std::exception& error) {
        ReportLostRow(error.what());
        return false;
    } catch (...) {
        ReportLostRow("Unexpected error while reading a row.");
        return false;
    }
    return true;
}

}  // namespace mduckdb
