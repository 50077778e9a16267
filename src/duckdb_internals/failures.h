#pragma once

#include <duckdb.h>

#include "base/error_facts.h"

namespace mduckdb {

/** The failure with DuckDB's text, or with the fixed text if there is none. The facts are those of DuckDB's
   own error object; where only its text is left, they are read from that. Copies everything: the owner of the
   error may be destroyed. Throws `std::bad_alloc` only for the text: without memory for the facts there are
   none. */
Failure FailureOf(duckdb_prepared_statement prepared, const char* fixed_text);
Failure FailureOf(const duckdb_result& result, const char* fixed_text);
Failure FailureOf(const char* duckdb_text, const char* fixed_text);

}  // namespace mduckdb
