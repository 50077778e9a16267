#pragma once

#include <functional>
#include <stdexcept>

#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "print/printer.h"

namespace mduckdb_host {

/** Called after every row; true stops the printing. May be empty. */
using StopTest = std::function<bool()>;

/** Prints the rows of a cursor from its current position on. Throws `xFetchError` when DuckDB fails to fetch
    the next row. */
void PrintCursor(const nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor>& cursor, Printer& printer,
                 const StopTest& is_stopped = nullptr);

/** Prints a result and the results that follow it. */
void PrintResults(nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> result, Printer& printer,
                  const StopTest& is_stopped = nullptr);

/** Throws `xFetchError` when the cursor has come to the end of its rows because fetching the next one failed.
 */
void RequireAllRows(nbx::mrsql::I_DuckDBCursor& cursor);

/** A result ended before its last row; `what()` is DuckDB's text. */
class xFetchError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace mduckdb_host
