#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "duckdb_internals/column_array.h"
#include "objects/appender.h"

namespace mduckdb {

void DuckDBAppender::AppendColumns(const nbx::mrsql::DuckDBColumnArray* columns, uint32_t column_count,
                                   uint64_t row_count) {
    RefuseInnerCall();
    const nbx::MutexLock lock(mutex_);
    RequireOpen();
    if (column_count != names_.size()) {
        ThrowRowError(std::to_string(column_count) + " arrays for " + std::to_string(names_.size()) +
                      " columns");
    }
    for (uint32_t i = 0; row_count > 0 && i < column_count; ++i) {
        const std::string refusal = RefuseArray(columns[i]);
        if (!refusal.empty()) {
            ThrowCellError(i, refusal);
        }
    }
    ChunkRows& rows = table_->get_Rows();
    for (uint64_t first = 0; first < row_count;) {
        RequireOpen();
        if (rows.get_IsFull()) {
            FlushRows();
        }
        if (const idx_t stored = StoreAtOnce(columns, first, row_count - first)) {
            first += stored;
            continue;
        }
        const idx_t room = std::min<uint64_t>(rows.Open(), row_count - first);
        const idx_t count = CountRowsOf(columns, column_count, first, room, ChunkRows::kMostBytes);
        StorePart(columns, first, count);
        first += count;
    }
}

void DuckDBAppender::StorePart(const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first, idx_t count) {
    ChunkRows& rows = table_->get_Rows();
    idx_t stored = count;
    std::size_t failing = 0;
    std::string error;
    try {
        for (std::size_t i = 0; i < names_.size() && stored > 0; ++i) {
            std::string text;
            const idx_t valid =
                StoreArray(rows.get_Columns()[i], rows.get_Row(), columns[i], first, stored, text);
            if (valid < stored) {
                stored = valid;
                failing = i;
                error = std::move(text);
            }
        }
    } catch (...) {
        rows.Undo(count);
        throw;
    }
    Keep(stored);
    if (stored < count) {
        rows.Undo(count - stored);
        ThrowCellError(failing, error);
    }
}

idx_t DuckDBAppender::StoreAtOnce(const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first,
                                  uint64_t count) {
    const idx_t most = ChunkRows::kMostChunks * duckdb_vector_size();
    if (is_one_transaction_ || table_->get_Rows().get_Count() > 0 || count <= most) {
        return 0;
    }
    Work work(*this);
    Failure error;
    idx_t stored = 0;
    try {
        stored = table_->StoreArrays(columns, first, most);
    } catch (const std::bad_alloc&) {
        // Collecting the rows needs other memory, and reports it if there is none.
    }
    const bool is_interrupted = work.get_Connection().get_IsInterrupted();
    work.EndDeadline();
    if (is_interrupted || work.get_IsCut()) {
        row_count_.store(row_count_.load() + most);
        pending_count_.store(most);
        Fail(work, false, std::move(error));
    }
    if (stored == 0 || !table_->Commit(error)) {
        table_->Rollback();
        Discard();
        return 0;
    }
    row_count_.store(row_count_.load() + stored);
    CountStored(stored);
    return stored;
}

}  // namespace mduckdb
