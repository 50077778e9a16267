#include "cursor/duckdb_cursor_server.h"

#include "cursor/value_conversion.h"
#include "duckdb_plain/plain_functions.h"

namespace mduckdb {

DuckDBCursor_server::DuckDBCursor_server(DuckDBDatabase& database, duckdb_plain::ResultHolder result)
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
    if (chunk_ && duckdb_data_chunk_get_size(chunk_.get()) > row_in_chunk_ + 1) {
        ++row_in_chunk_;
        return true;
    }
    chunk_.Reset();
    chunk_ = FetchChunk(result_);
    row_in_chunk_ = 0;
    if (chunk_ && duckdb_data_chunk_get_size(chunk_.get()) == 0) {
        chunk_.Reset();
    }
    return static_cast<bool>(chunk_);
}

nbx::smart_ptr<nbx::I_Value> DuckDBCursor_server::get_Value(uint32_t column_index) {
    RequireValid();
    RequireColumn(column_index);
    if (!chunk_) {
        ThrowError("Data is not available. Use NextRecord() to fetch data.");
    }
    if (row_in_chunk_ >= duckdb_data_chunk_get_size(chunk_.get())) {
        ThrowError("Current position is out of bounds");
    }
    const duckdb_plain::ValueHolder value(
        duckdb_data_chunk_get_value(chunk_.get(), column_index, row_in_chunk_));
    return ConvertCellValue(value.get(), get_ColumnType(column_index));
}

}  // namespace mduckdb
