#pragma once

#include <duckdb.h>

#include <memory>
#include <string_view>

#include "base/holders.h"
#include "base/host_values.h"
#include "duckdb_internals/plain_functions.h"

namespace mduckdb {

/** DuckDB's text of a value, in DuckDB's memory: UTF-8 and whole, NUL characters included. Empty for a null
    handle, for NULL, and for a value without a text, such as a number that its type does not allow. */
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

/** Creates the host value of a VARIANT; also called with null and with NULL. */
using VariantConverter = HostValue (*)(duckdb_value variant);

struct CellScratch;
struct CellColumn;

/** Creates the host value of a cell that is not NULL. The caller owns the reference. Throws `std::bad_alloc`,
    and what DuckDB throws where it refuses the cell. */
using ReadCell = nbx::I_Value* (*)(const CellColumn&, CellScratch&, idx_t row);

/** One column of a chunk, with the function for its type. The pointers are the chunk's. */
struct CellColumn {
    ReadCell read;
    const void* data;
    const uint64_t* validity;  // a bit a row; null: every row is valid
    duckdb_data_chunk chunk;
    uint32_t index;  // of the column in the chunk
    uint8_t scale;   // of a DECIMAL

    bool IsValid(idx_t row) const noexcept {
        return validity == nullptr || (validity[row / 64] >> (row % 64) & 1) != 0;
    }
    template <class T>
    const T& Get(idx_t row) const noexcept {
        return static_cast<const T*>(data)[row];
    }
    ValueHolder TakeValue(idx_t row) const {
        return ValueHolder(duckdb_data_chunk_get_value(chunk, index, row));
    }
};

/** Creates host values from the cells of one chunk after another: the table in the source says which type
    becomes which host value. The result is the same as through DuckDB's values
    (`duckdb_data_chunk_get_value`, then the getter of the type), but types with a plain form are read without
    creating a `duckdb_value`. Not for two threads at once. */
class CellReader {
  public:
    explicit CellReader(VariantConverter convert_variant);
    ~CellReader();

    /** Selects the chunk, which the caller keeps and must not change or destroy while cells are
        read. Null: no cells. Throws `std::bad_alloc`, but not for null. */
    void Bind(duckdb_data_chunk chunk);
    /** Rows of the chunk. */
    idx_t get_RowCount() const noexcept { return row_count_; }
    /** Whether the chunk has the cell. */
    bool HasCell(idx_t column, idx_t row) const noexcept {
        return column < column_count_ && row < row_count_;
    }
    /** The host value of a cell that the chunk has, never a null pointer: a null value for NULL, the empty
        text for a cell that its type does not allow or that DuckDB refuses to convert to text. Throws
        `std::bad_alloc`. */
    HostValue Read(idx_t column, idx_t row) {
        const CellColumn& from = columns_[column];
        if (!from.IsValid(row)) {
            return HostValue::Adopt(MakeNull());
        }
        try {
            return HostValue::Adopt(from.read(from, *scratch_, row));
        } catch (...) {
            return MakeRefused();
        }
    }

  private:
    struct State;

    // Not inline: they would burden each caller.
    static nbx::I_Value* MakeNull();
    /** For a cell that could not be read, while the exception is handled. */
    static HostValue MakeRefused();

    std::unique_ptr<State> state_;
    /** In the state. */
    const CellColumn* columns_ = nullptr;
    CellScratch* scratch_;
    idx_t column_count_ = 0;
    idx_t row_count_ = 0;
};

}  // namespace mduckdb
