#pragma once

#include <vector>

#include "nbx/value.h"
#include "objects/duckdb_cursor_imp.h"

namespace mduckdb {

class CellReader;

/** Keeps all rows of a result as host values, read at construction, and moves freely among them.

    A new cursor has no current record. Moving and reading fields take no lock and do not call DuckDB. */
class DuckDBCursor_client final : public DuckDBCursor_imp {
  public:
    /** Reads the rows without the engine lock, unless the caller holds it; an `Interrupt` of the database
        stops it (`xInterruptError`). Takes ownership of the result unless it throws. */
    DuckDBCursor_client(SharedLink link, ResultHolder& result);

    uint32_t get_RecordCount() override;
    uint32_t get_CurrentRecord() override;
    bool put_CurrentRecord(uint32_t record) override;
    bool FirstRecord() override;
    bool LastRecord() override;
    bool NextRecord() override;
    bool PrevRecord() override;
    nbx::smart_ptr<nbx::I_Value> get_Value(uint32_t column_index) override;

    /** The rows as arrays, created on the first call and then kept; they share the cursor's values. */
    nbx::smart_ptr<nbx::ValueRows> get_Rows();

  protected:
    RecordPlace FindRecord() override;
    ArrowStart FindArrowStart() override;

  private:
    void ReadRows();
    void ReserveRows();
    void AppendRows(CellReader& cells);
    /** Records are numbered in 32 bits: throws when there are more rows. */
    void RequireNumberable(uint64_t row_count) const;

    /** Row after row in one flat array: reading a field is one look-up, and a row has no overhead. */
    std::vector<nbx::smart_ptr<nbx::I_Value>> values_;
    uint32_t row_count_ = 0;
    /** Null until it is first requested. */
    nbx::smart_ptr<nbx::ValueRows> rows_;
    /** Counts from 1; 0 when there is none. */
    uint32_t current_record_ = 0;
    /** What `FindRecord` read last, and the number of the record before its first. */
    ChunkHolder found_chunk_;
    uint32_t found_after_ = 0;
};

}  // namespace mduckdb
