#include "objects/duckdb_cursor_server.h"

#include "duckdb_internals/arrow_rows.h"

namespace mduckdb {

void DuckDBCursor_server::Refuse(const char* message) const {
    RequireValid();
    ThrowError(message);
}

uint32_t DuckDBCursor_server::get_RecordCount() {
    Refuse("get_RecordCount() is not supported for server-side cursors");
}

uint32_t DuckDBCursor_server::get_CurrentRecord() {
    Refuse("get_CurrentRecord() is not supported for server-side cursors");
}

bool DuckDBCursor_server::put_CurrentRecord(uint32_t /*record*/) {
    Refuse("put_CurrentRecord() is not supported for server-side cursors");
}

bool DuckDBCursor_server::FirstRecord() {
    Refuse("FirstRecord() is not supported for server-side cursors");
}

bool DuckDBCursor_server::LastRecord() {
    Refuse("LastRecord() is not supported for server-side cursors");
}

bool DuckDBCursor_server::PrevRecord() {
    Refuse("PrevRecord() is not supported for server-side cursors");
}

bool DuckDBCursor_server::NextRecord() {
    return MoveInChunk() || MoveToNextRowUnderLock();
}

bool DuckDBCursor_server::MoveToNextRowUnderLock() {
    const EngineLockScope lock;
    return MoveToNextRow();
}

inline bool DuckDBCursor_server::MoveInChunk() {
    if (!get_HasResult()) {
        ThrowInvalid();
    }
    if (row_in_chunk_ + 1 >= cells_.get_RowCount()) {
        return false;
    }
    ++row_in_chunk_;
    return true;
}

bool DuckDBCursor_server::MoveToNextRow() {
    if (MoveInChunk()) {
        return true;
    }
    RequireValid();
    MoveToNextChunk();
    return static_cast<bool>(chunk_);
}

void DuckDBCursor_server::RequireRows() const {
    if (has_handed_over_rows_) {
        ThrowError("The rest of the rows was exported as an Arrow stream");
    }
}

void DuckDBCursor_server::MoveToNextChunk() {
    RequireRows();
    if (!next_chunk_) {
        next_chunk_ = FetchChunk();
    }
    if (next_chunk_ && duckdb_data_chunk_get_size(next_chunk_.get()) == 0) {
        next_chunk_.Reset();
    }
    try {
        cells_.Bind(next_chunk_.get());
    } catch (...) {
        cells_.Bind(chunk_.get());  // Needs no memory: it was bound before.
        throw;
    }
    chunk_ = std::move(next_chunk_);
    row_in_chunk_ = 0;
}

void DuckDBCursor_server::ThrowNoRecord() const {
    ThrowError(chunk_ ? "Current position is out of bounds"
                      : "Data is not available. Use NextRecord() to fetch data.");
}

void DuckDBCursor_server::ThrowNoCell(uint32_t column_index) const {
    RequireValid();
    RequireColumn(column_index);
    ThrowNoRecord();
}

nbx::smart_ptr<nbx::I_Value> DuckDBCursor_server::get_Value(uint32_t column_index) {
    if (!get_HasResult() || !cells_.HasCell(column_index, row_in_chunk_)) {
        ThrowNoCell(column_index);
    }
    return cells_.Read(column_index, row_in_chunk_);
}

DuckDBCursor_imp::RecordPlace DuckDBCursor_server::FindRecord() {
    if (row_in_chunk_ >= cells_.get_RowCount()) {
        ThrowNoRecord();
    }
    return {chunk_.get(), row_in_chunk_};
}

DuckDBCursor_imp::ArrowStart DuckDBCursor_server::FindArrowStart() {
    RequireRows();
    ArrowStart start;
    if (next_chunk_) {  // the rows of the other one were all read
        start.rows = CopyRows(next_chunk_.get(), 0);
    } else if (chunk_) {
        start.rows = CopyRows(chunk_.get(), row_in_chunk_ + 1);
    }
    return start;
}

void DuckDBCursor_server::HandOverRows() noexcept {
    has_handed_over_rows_ = true;
    cells_.Bind(nullptr);
    chunk_.Reset();
    next_chunk_.Reset();
}

}  // namespace mduckdb
