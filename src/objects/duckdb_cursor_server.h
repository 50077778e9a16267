#pragma once

#include <utility>

#include "duckdb_internals/cell_reader.h"
#include "objects/duckdb_cursor_imp.h"
#include "values/variant.h"

namespace mduckdb {

/** Reads a result forward and holds only the rows of one DuckDB chunk.

    Starts before the first row, then is on a row, and is after the last one when `NextRecord` has returned
    false; it cannot move back. Only fetching a chunk takes the engine lock; reading a field and moving within
    the chunk take none, since its rows no longer depend on the result. */
class DuckDBCursor_server : public DuckDBCursor_imp {
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
    /** For a cursor whose result follows. */
    explicit DuckDBCursor_server(SharedLink link) : DuckDBCursor_imp(std::move(link)) {}
    /** `NextRecord` without the engine lock. */
    bool MoveToNextRow();
    RecordPlace FindRecord() override;
    ArrowStart FindArrowStart() override;
    void HandOverRows() noexcept override;

  private:
    /** Moves to the next row of the chunk; false, and nothing changed, if there is none. */
    bool MoveInChunk();
    /** Throws if an Arrow stream has them. */
    void RequireRows() const;
    /** Not inline: it takes the engine lock, and would burden each call of `NextRecord`. */
    [[gnu::noinline]] bool MoveToNextRowUnderLock();
    [[noreturn]] void ThrowNoRecord() const;
    /** Throws what is wrong when a cell cannot be read. */
    [[noreturn]] void ThrowNoCell(uint32_t column_index) const;
    /** Throws for operations that only a client cursor supports. */
    [[noreturn]] void Refuse(const char* message) const;
    /** Replaces the chunk with the next one, or with none. Throws when it cannot be read, and then stays
       where it is. */
    void MoveToNextChunk();

    /** Null before the first row, after the last, and once a stream has the rows. */
    ChunkHolder chunk_;
    /** Fetched, but not moved to, since memory ran out; else null. */
    ChunkHolder next_chunk_;
    uint64_t row_in_chunk_ = 0;
    bool has_handed_over_rows_ = false;
    /** Bound to the chunk, or to none. */
    CellReader cells_{ConvertVariant};
};

}  // namespace mduckdb
