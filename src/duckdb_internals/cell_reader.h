#pragma once

#include <duckdb.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include "base/holders.h"

namespace mduckdb {

/** A cell in the form in which a host value takes it. */
struct Cell {
    enum class Kind : uint8_t {
        null,
        boolean,  // BOOLEAN
        int16,    // TINYINT, SMALLINT
        int32,    // INTEGER
        int64,    // BIGINT
        uint8,    // UTINYINT
        uint16,   // USMALLINT
        uint32,   // UINTEGER
        uint64,   // UBIGINT
        real32,   // FLOAT
        real64,   // DOUBLE, DECIMAL (as DuckDB casts it)
        blob,     // BLOB, in `bytes`
        text,     // every other type: DuckDB's text in `bytes`, UTF-8 as DuckDB holds it, NULs included
        variant,  // VARIANT: take the value with `CellReader::TakeValue`
    };
    union Number {
        bool boolean;
        int16_t int16;
        int32_t int32;
        int64_t int64;
        uint8_t uint8;
        uint16_t uint16;
        uint32_t uint32;
        uint64_t uint64;
        float real32;
        double real64;
    };

    Kind kind = Kind::null;
    Number number{.uint64 = 0};
    std::string_view bytes{};
};

/** Reads the cells of one chunk after another without making a value of each. The outcome is that of the
    way through values: `duckdb_data_chunk_get_value`, then the getter of the type. A cell that is no value
    of its type, or whose text DuckDB refuses to make, is the empty text; a cell that cannot be read at all
    is null. Not for two threads at once. */
class CellReader {
  public:
    CellReader() noexcept;
    CellReader(CellReader&&) noexcept;
    CellReader& operator=(CellReader&&) noexcept;
    ~CellReader();

    /** Turns to the chunk, which stays the caller's and must live, unchanged, as long as cells are read.
        Null: no cells. Throws `std::bad_alloc`. */
    void Bind(duckdb_data_chunk chunk);
    /** Rows of the chunk. */
    idx_t get_RowCount() const noexcept;
    idx_t get_ColumnCount() const noexcept;
    /** The cell; null outside the chunk. `bytes` stay valid until the next call of this reader. */
    Cell Read(idx_t column, idx_t row) noexcept;
    /** The cell as a value of its own, empty outside the chunk. */
    ValueHolder TakeValue(idx_t column, idx_t row) const noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace mduckdb
