#pragma once

#include <duckdb.h>

#include <memory>
#include <string_view>

#include "base/holders.h"
#include "base/host_values.h"
#include "duckdb_internals/plain_functions.h"

namespace mduckdb {

/** DuckDB's text of a value, in DuckDB's memory: UTF-8 and whole, NUL characters included. Empty for a null
    handle, for NULL, and for what has no text, such as a number that its type does not allow. */
class ValueText {
  public:
    explicit ValueText(duckdb_value value) { text_.Reset(duckdb_get_varchar_length(value, &length_)); }
    std::string_view get_View() const noexcept {
        return text_ ? std::string_view(text_.get(), length_) : std::string_view();
    }

  private:
    TextHolder text_;
    idx_t length_ = 0;
};

/** Makes the host value of a VARIANT; called with null and with NULL too. */
using VariantConverter = HostValue (*)(duckdb_value variant);

/** Makes host values of the cells of one chunk after another: the table in the source says which type becomes
    which host value. The outcome is that of the way through DuckDB's values, `duckdb_data_chunk_get_value`
   and then the getter of the type, without making a `duckdb_value` for the types that have a plain form. Not
   for two threads at once. */
class CellReader {
  public:
    explicit CellReader(VariantConverter convert_variant);
    ~CellReader();

    /** Turns to the chunk, which stays the caller's and must live, unchanged, as long as cells are read.
        Null: no cells. Throws `std::bad_alloc`. */
    void Bind(duckdb_data_chunk chunk);
    /** Rows of the chunk. */
    idx_t get_RowCount() const noexcept { return row_count_; }
    /** The host value of a cell, never a null pointer: a null value for NULL and outside the chunk, the empty
        text for a cell that its type does not allow or whose text DuckDB refuses to make. Throws
        `std::bad_alloc`. */
    HostValue Read(idx_t column, idx_t row);

  private:
    struct State;
    std::unique_ptr<State> state_;
    idx_t row_count_ = 0;
};

}  // namespace mduckdb
