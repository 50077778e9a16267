#pragma once

#include "module_under_test.h"

namespace bench {

/** Passes every cell of the query to `deliver` with a server cursor; returns the number of cells. */
template <class Deliver>
uint64_t ReadServerCursor(nbx::mrsql::I_DuckDBDatabase& database, const nbx::String& sql, Deliver deliver) {
    const nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> cursor =
        database.SqlSelect(sql, nbx::mrsql::kServerCursor, nullptr);
    const uint32_t columns = cursor->get_ColumnCount();
    uint64_t cells = 0;
    while (cursor->NextRecord()) {
        for (uint32_t column = 0; column < columns; ++column) {
            deliver(cursor->get_Value(column));
        }
        cells += columns;
    }
    return cells;
}

/** The same, and checks each value's type. */
uint64_t ReadThroughServerCursor(nbx::mrsql::I_DuckDBDatabase& database, const nbx::String& sql);

}  // namespace bench
