#include "objects/cursor.h"

#include <utility>

#include "duckdb_internals/cell_reader.h"
#include "objects/duckdb_cursor_client.h"
#include "objects/duckdb_cursor_imp.h"
#include "values/variant.h"

namespace mduckdb {
namespace {

/** Reads a result forward and holds only the rows of one DuckDB chunk.

    Starts before the first row, then is on a row, and is after the last one when `NextRecord` has returned
    false; it cannot move back. Reading a field takes no lock: the loaded rows no longer depend on the
    result. */
class DuckDBCursor_server final : public DuckDBCursor_imp {
  public:
    DuckDBCursor_server(SharedLink link, ResultHolder& result) : DuckDBCursor_imp(std::move(link), result) {
        TakeResult(result);
    }

    uint32_t get_RecordCount() override;
    uint32_t get_CurrentRecord() override;
    bool put_CurrentRecord(uint32_t record) override;
    bool FirstRecord() override;
    bool LastRecord() override;
    bool NextRecord() override;
    bool PrevRecord() override;
    nbx::smart_ptr<nbx::I_Value> get_Value(uint32_t column_index) override;

  protected:
    RecordPlace FindRecord() override;

  private:
    /** Throws for operations that only a client cursor supports. */
    [[noreturn]] void Refuse(const char* message) const;
    /** Replaces the chunk with the next one, or with none. Throws when it cannot be read, and then stays
       where it is. */
    void MoveToNextChunk();

    /** Null before the first row and after the last. */
    ChunkHolder chunk_;
    /** Fetched, but not moved to, since memory ran out; else null. */
    ChunkHolder next_chunk_;
    uint64_t row_in_chunk_ = 0;
    /** Bound to the chunk. */
    CellReader cells_{ConvertVariant};
};

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

nbx::smart_ptr<nbx::I_Value> DuckDBCursor_server::get_Value(uint32_t column_index) {
    RequireValid();
    RequireColumn(column_index);
    FindRecord();
    return cells_.Read(column_index, row_in_chunk_);
}

DuckDBCursor_imp::RecordPlace DuckDBCursor_server::FindRecord() {
    if (!chunk_) {
        ThrowError("Data is not available. Use NextRecord() to fetch data.");
    }
    if (row_in_chunk_ >= cells_.get_RowCount()) {
        ThrowError("Current position is out of bounds");
    }
    return {chunk_.get(), row_in_chunk_};
}

}  // namespace

nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> MakeCursor(SharedLink link, ResultHolder& result,
                                                      uint32_t cursor_location) {
    if (cursor_location == nbx::mrsql::kClientCursor) {
        return nbx::MakeObject<DuckDBCursor_client>(std::move(link), result);
    }
    return nbx::MakeObject<DuckDBCursor_server>(std::move(link), result);
}

nbx::smart_ptr<nbx::ValueRows> GetClientCursorRows(nbx::mrsql::I_DuckDBCursor* cursor) {
    auto* client = dynamic_cast<DuckDBCursor_client*>(cursor);
    return client != nullptr ? client->get_Rows() : nullptr;
}

bool IsClientCursor(nbx::mrsql::I_DuckDBCursor* cursor) {
    return dynamic_cast<DuckDBCursor_client*>(cursor) != nullptr;
}

}  // namespace mduckdb
