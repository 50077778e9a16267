#pragma once

#include <duckdb.h>

#include "duckdb_internals/cell_reader.h"
#include "nbx/value.h"

namespace mduckdb {

/** Makes the host values of the cells of one chunk after another, the same as `ConvertDuckDBValue` makes
    of the cell's DuckDB value, but without making one for the types that have a plain form. */
class CellConverter {
  public:
    /** Turns to the chunk, which must live as long as its cells are asked for; null for none. */
    void Bind(duckdb_data_chunk chunk);
    idx_t get_RowCount() const noexcept { return row_count_; }
    /** The host value of a cell of the chunk, never a null pointer. */
    nbx::smart_ptr<nbx::I_Value> Convert(idx_t column, idx_t row);

  private:
    nbx::smart_ptr<nbx::I_Value> ConvertVariant(idx_t column, idx_t row) const;

    CellReader reader_;
    idx_t row_count_ = 0;
};

}  // namespace mduckdb
