#pragma once

#include "objects/duckdb_cursor_imp.h"
#include "values/cell_conversion.h"

namespace mduckdb {

/** Goes forward through a result and holds no more of it than the rows of one DuckDB chunk.

    Stands before the first row at the start, then on a row, and after the last one when `NextRecord`
    has given false; there is no way back. Reading a field takes no lock: the rows at hand do not
    depend on the result any more. */
class DuckDBCursor_server final : public DuckDBCursor_imp {
  public:
    DuckDBCursor_server(DuckDBDatabase& database, ResultHolder result);

    uint32_t get_RecordCount() override;
    uint32_t get_CurrentRecord() override;
    bool put_CurrentRecord(uint32_t record) override;
    bool FirstRecord() override;
    bool LastRecord() override;
    bool NextRecord() override;
    bool PrevRecord() override;
    nbx::smart_ptr<nbx::I_Value> get_Value(uint32_t column_index) override;

  private:
    /** For what only a client cursor can do. */
    [[noreturn]] void Refuse(const char* message) const;
    /** Puts the next rows, or nothing, in the place of the chunk. */
    void MoveToNextChunk();

    /** Null before the first row and after the last. */
    ChunkHolder chunk_;
    uint64_t row_in_chunk_ = 0;
    /** Bound to the chunk. */
    CellConverter cells_;
};

}  // namespace mduckdb
