#include "cursor/duckdb_cursor_client.h"

#include <limits>

#include "cursor/cell_conversion.h"
#include "database/database.h"
#include "database/errors.h"

namespace mduckdb {

/** The cursor's result, taken out while its rows are read, so that a database that closes on another
    thread meanwhile cannot destroy it. Goes back at the end if the cursor still has its database. */
class DuckDBCursor_client::BorrowedResult : nbx::noncopyable {
  public:
    explicit BorrowedResult(DuckDBCursor_client& cursor) : cursor_(cursor) {
        const EngineLockScope lock;
        cursor_.RequireValid();
        result_ = std::move(cursor_.result_);
    }
    ~BorrowedResult() {
        const EngineLockScope lock;
        if (cursor_.database_ != nullptr) {
            cursor_.result_ = std::move(result_);
        }
        result_.Reset();
    }

    duckdb_plain::ResultHolder& get() noexcept { return result_; }

  private:
    DuckDBCursor_client& cursor_;
    duckdb_plain::ResultHolder result_;
};

DuckDBCursor_client::DuckDBCursor_client(DuckDBDatabase& database, duckdb_plain::ResultHolder result)
    : DuckDBCursor_imp(database, std::move(result)), rows_(nbx::MakeObject<nbx::ValueRows>()) {
    ReadRows(database);
    RequireValid();
}

void DuckDBCursor_client::ReadRows(DuckDBDatabase& database) {
    BorrowedResult result(*this);
    ReserveRows(*result.get());
    CellConverter cells;
    while (const duckdb_plain::ChunkHolder chunk = FetchChunk(result.get())) {
        cells.Bind(chunk.get());
        RequireNumberable(rows_->get_Count() + cells.get_RowCount());
        AppendRows(cells);
        database.ThrowIfInterrupted();
    }
}

void DuckDBCursor_client::ReserveRows(duckdb_result result) {
    // DuckDB counts the rows of a result that it has computed; 0 stands for not known.
    const uint64_t expected_count = result.internal_data != nullptr ? duckdb_row_count(&result) : 0;
    RequireNumberable(expected_count);
    rows_->Reserve(expected_count);
}

void DuckDBCursor_client::AppendRows(CellConverter& cells) {
    const uint32_t column_count = get_ColumnCount();
    const idx_t row_count = cells.get_RowCount();
    for (idx_t row = 0; row < row_count; ++row) {
        auto values = nbx::MakeObject<nbx::ValueRow>();
        values->Reserve(column_count);
        for (uint32_t column = 0; column < column_count; ++column) {
            values->Append(cells.Convert(column, row));
        }
        rows_->Append(std::move(values));
    }
}

void DuckDBCursor_client::RequireNumberable(uint64_t row_count) const {
    if (row_count > std::numeric_limits<uint32_t>::max()) {
        ThrowDetachedError("The result has too many rows for a client-side cursor");
    }
}

uint32_t DuckDBCursor_client::get_RecordCount() {
    RequireValid();
    return get_RowCount();
}

uint32_t DuckDBCursor_client::get_CurrentRecord() {
    RequireValid();
    return current_record_;
}

bool DuckDBCursor_client::put_CurrentRecord(uint32_t record) {
    RequireValid();
    if (record == 0 || record > get_RowCount()) {
        return false;
    }
    current_record_ = record;
    return true;
}

bool DuckDBCursor_client::FirstRecord() {
    return put_CurrentRecord(1);
}

bool DuckDBCursor_client::LastRecord() {
    RequireValid();
    current_record_ = get_RowCount();
    return current_record_ != 0;
}

bool DuckDBCursor_client::NextRecord() {
    RequireValid();
    if (current_record_ >= get_RowCount()) {
        return false;
    }
    ++current_record_;
    return true;
}

bool DuckDBCursor_client::PrevRecord() {
    RequireValid();
    if (current_record_ < 2) {
        return false;
    }
    --current_record_;
    return true;
}

nbx::smart_ptr<nbx::I_Value> DuckDBCursor_client::get_Value(uint32_t column_index) {
    RequireValid();
    RequireColumn(column_index);
    if (current_record_ == 0) {
        ThrowError("No current record.");
    }
    return rows_->get_Item(current_record_ - 1)->get_Item(column_index);
}

}  // namespace mduckdb
