#include "objects/duckdb_cursor_client.h"

#include <sys/mman.h>
#include <unistd.h>

#include <limits>

#include "base/errors.h"
#include "duckdb_internals/cell_reader.h"
#include "values/variant.h"

namespace mduckdb {
namespace {

/** Asks for huge pages for a large array that is read at random: with small pages nearly every field that is
    read costs a miss in the processor's table of addresses (TLB). It is only advice, so a refusal is
    ignored. */
void AdviseHugePages(void* memory, std::size_t size) noexcept {
    constexpr std::size_t kWorthwhile = std::size_t{16} * 1024 * 1024;
    if (size < kWorthwhile) {
        return;
    }
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(memory) % page;
    ::madvise(static_cast<char*>(memory) + before, (size - before) / page * page, MADV_HUGEPAGE);
}

}  // namespace

DuckDBCursor_client::DuckDBCursor_client(SharedLink link, ResultHolder& result)
    : DuckDBCursor_imp(std::move(link), result) {
    TakeResult(result);
    try {
        ReadRows();
        RequireValid();
    } catch (...) {
        GiveBackResult(result);
        LeaveSiblings();
        throw;
    }
}

void DuckDBCursor_client::ReadRows() {
    ReserveRows();
    CellReader cells(ConvertVariant);
    while (const ChunkHolder chunk = FetchChunk()) {
        cells.Bind(chunk.get());
        RequireNumberable(row_count_ + cells.get_RowCount());
        AppendRows(cells);
        tie_.get_Link()->ThrowIfInterrupted();
    }
}

void DuckDBCursor_client::ReserveRows() {
    const uint64_t expected_count = CountComputedRows();
    RequireNumberable(expected_count);
    // One array, and the advice before its first use: a page that was touched stays small.
    values_.reserve(expected_count * get_ColumnCount());
    AdviseHugePages(values_.data(), values_.capacity() * sizeof(values_[0]));
}

void DuckDBCursor_client::AppendRows(CellReader& cells) {
    const uint32_t column_count = get_ColumnCount();
    const idx_t row_count = cells.get_RowCount();
    for (idx_t row = 0; row < row_count; ++row) {
        for (uint32_t column = 0; column < column_count; ++column) {
            values_.push_back(cells.Read(column, row));
        }
    }
    row_count_ += static_cast<uint32_t>(row_count);
}

nbx::smart_ptr<nbx::ValueRows> DuckDBCursor_client::get_Rows() {
    if (rows_) {
        return rows_;
    }
    auto rows = nbx::MakeObject<nbx::ValueRows>();
    rows->Reserve(row_count_);
    const uint32_t column_count = get_ColumnCount();
    auto value = values_.cbegin();
    for (uint32_t row = 0; row < row_count_; ++row) {
        auto fields = nbx::MakeObject<nbx::ValueRow>();
        fields->Reserve(column_count);
        for (uint32_t column = 0; column < column_count; ++column) {
            fields->Append(*value++);
        }
        rows->Append(std::move(fields));
    }
    rows_ = std::move(rows);
    return rows_;
}

void DuckDBCursor_client::RequireNumberable(uint64_t row_count) const {
    if (row_count > std::numeric_limits<uint32_t>::max()) {
        ThrowDetachedError("The result has too many rows for a client-side cursor");
    }
}

DuckDBCursor_imp::RecordPlace DuckDBCursor_client::FindRecord() {
    if (current_record_ == 0) {
        ThrowError("No current record.");
    }
    bool is_from_first_row = !found_chunk_ || current_record_ <= found_after_;
    while (is_from_first_row || (found_chunk_ && current_record_ - found_after_ >
                                                     duckdb_data_chunk_get_size(found_chunk_.get()))) {
        // Without a chunk, the next call begins at the first row, should fetching fail here.
        const ChunkHolder passed = std::move(found_chunk_);
        const auto passed_rows = is_from_first_row ? 0 : duckdb_data_chunk_get_size(passed.get());
        found_after_ = is_from_first_row ? 0 : found_after_ + static_cast<uint32_t>(passed_rows);
        found_chunk_ = FetchChunkAgain(is_from_first_row);
        is_from_first_row = false;
    }
    return {found_chunk_.get(), current_record_ - found_after_ - 1};
}

DuckDBCursor_imp::ArrowStart DuckDBCursor_client::FindArrowStart() {
    if (CountComputedRows() < row_count_) {
        ThrowError(
            "DuckDB computed the rows of this client cursor while they were read and no longer has them");
    }
    ArrowStart start;
    start.is_from_first_row = true;
    start.passed_rows = current_record_;
    return start;
}

uint32_t DuckDBCursor_client::get_RecordCount() {
    RequireValid();
    return row_count_;
}

uint32_t DuckDBCursor_client::get_CurrentRecord() {
    RequireValid();
    return current_record_;
}

bool DuckDBCursor_client::put_CurrentRecord(uint32_t record) {
    RequireValid();
    if (record == 0 || record > row_count_) {
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
    current_record_ = row_count_;
    return current_record_ != 0;
}

bool DuckDBCursor_client::NextRecord() {
    RequireValid();
    if (current_record_ >= row_count_) {
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
    return values_[std::size_t{current_record_ - 1} * get_ColumnCount() + column_index];
}

}  // namespace mduckdb
