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
    const uint64_t before = row_count_.load();
    try {
        return StoreAtOnceIn(work, columns, first, most);
    } catch (const std::bad_alloc&) {
        work.EndDeadline();
        table_->Rollback();
        Discard();
        // The rows can be appended again, unless they may have been committed.
        if (!table_->get_IsOutcomeUnknown()) {
            row_count_.store(before);
        }
        throw;
    }
}

idx_t DuckDBAppender::StoreAtOnceIn(Work& work, const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first,
                                    idx_t most) {
    idx_t passed = 0;
    const bool is_stored = table_->StoreArrays(columns, first, most, passed);
    const bool is_interrupted = work.get_Connection().get_IsInterrupted();
    // The outcome of a commit that is cut would be unknown.
    work.EndDeadline();
    if (!is_stored && !is_interrupted && !work.get_IsCut()) {
        table_->Rollback();
        Discard();
        return 0;
    }
    row_count_.store(row_count_.load() + passed);
    pending_count_.store(passed);
    Failure error;
    if (!is_stored || is_interrupted || !table_->Commit(error)) {
        Fail(work, false, std::move(error));
    }
    pending_count_.store(0);
    CountStored(passed);
    return passed;
}

}  // namespace mduckdb
