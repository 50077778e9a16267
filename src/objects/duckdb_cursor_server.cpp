#include "objects/duckdb_cursor_server.h"

namespace mduckdb {

DuckDBCursor_server::DuckDBCursor_server(DuckDBDatabase& database, ResultHolder result)
    : DuckDBCursor_imp(database, std::move(result)) {}

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
    const EngineLockScope lock;
    RequireValid();
    if (chunk_ && cells_.get_RowCount() > row_in_chunk_ + 1) {
        ++row_in_chunk_;
        return true;
    }
    MoveToNextChunk();
    return static_cast<bool>(chunk_);
}

void DuckDBCursor_server::MoveToNextChunk() {
    cells_.Bind(nullptr);
    chunk_.Reset();
    row_in_chunk_ = 0;
    ChunkHolder chunk = FetchChunk(result_);
    if (!chunk || duckdb_data_chunk_get_size(chunk.get()) == 0) {
        return;
    }
    cells_.Bind(chunk.get());
    chunk_ = std::move(chunk);
}

nbx::smart_ptr<nbx::I_Value> DuckDBCursor_server::get_Value(uint32_t column_index) {
    RequireValid();
    RequireColumn(column_index);
    if (!chunk_) {
        ThrowError("Data is not available. Use NextRecord() to fetch data.");
    }
    if (row_in_chunk_ >= cells_.get_RowCount()) {
        ThrowError("Current position is out of bounds");
    }
    return cells_.Convert(column_index, row_in_chunk_);
}

}  // namespace mduckdb
