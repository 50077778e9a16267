#pragma once

#include <duckdb.h>

#include <memory>

#include "base/holders.h"
#include "nbx/arrow_c_data.h"

namespace mduckdb {

/** Converts the chunks of one result to Arrow arrays.

    Without loss, as DuckDB's setting `arrow_lossless_conversion` does, whatever the connection has set;
   DuckDB's other settings are those of the connection at the time of construction. A VARIANT, which DuckDB
   does not convert, becomes its JSON text, also inside a nested type. A cell with a VARIANT that DuckDB must
   not convert to text, see value_guard.h, becomes NULL. */
class ArrowRows {
  public:
    /** Nothing may run on the result's connection. Throws `std::runtime_error` with DuckDB's text for a type
        that it cannot convert, and `std::bad_alloc`. */
    explicit ArrowRows(duckdb_result& result);
    ArrowRows(ArrowRows&&) noexcept;
    ArrowRows& operator=(ArrowRows&&) noexcept;
    ~ArrowRows();

    /** A struct with a child for each column; needs neither the result nor its connection. */
    void CopySchema(ArrowSchema& out) const;
    /** The chunk's rows. The array depends on nothing else. The connection must be there. Throws
        `std::runtime_error` with DuckDB's text, and `std::bad_alloc`; then `out` is unchanged. */
    void Convert(duckdb_data_chunk chunk, ArrowArray& out) const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/** The chunk's rows from number `first` on, as a chunk that depends on nothing else; null if there are none.
    Throws `std::bad_alloc`. */
ChunkHolder CopyRows(duckdb_data_chunk chunk, idx_t first);

}  // namespace mduckdb
