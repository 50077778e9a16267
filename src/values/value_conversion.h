#pragma once

#include <duckdb.h>

#include "nbx/value.h"

namespace mduckdb {

/** Makes the host value of one DuckDB value, by its own type; what the host has no kind for becomes
    DuckDB's text. A null handle and NULL become a null Boolean.

    `variant_type` is the kind of what is inside when the value is a VARIANT; null when it is unknown,
    and then the VARIANT becomes text as a whole. The value stays the caller's and may be changed in
    place. Throws nothing but what the host's factories throw when memory runs out. */
nbx::smart_ptr<nbx::I_Value> ConvertDuckDBValue(duckdb_value value, const uint32_t* variant_type);

/** Makes the host value of the value of a column of type `column_type`: asks for the kind of what is
    inside a VARIANT first. */
nbx::smart_ptr<nbx::I_Value> ConvertCellValue(duckdb_value value, uint32_t column_type);

}  // namespace mduckdb
