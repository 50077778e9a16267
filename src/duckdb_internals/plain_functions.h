#ifndef MDUCKDB_PLAIN_FUNCTIONS_H
#define MDUCKDB_PLAIN_FUNCTIONS_H

/* Functions in the style of DuckDB's C API that the stock library does not export. Same conventions: opaque
   handles, `duckdb_state`, texts freed with `duckdb_free`, values destroyed with `duckdb_destroy_value`. All
   accept null handles. They throw `std::bad_alloc` when memory runs out and nothing else, so null means that
   something does not exist, never that there was no memory for it. When the library exports one of them, the
   one here can be removed. */

#include <duckdb.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The cell as a new value, which the caller destroys; null when there is no such cell or it cannot be
   created. */
duckdb_value duckdb_data_chunk_get_value(duckdb_data_chunk chunk, idx_t column, idx_t row);

/* DuckDB's text of the type, for example DECIMAL(18,3); free it. Null for a null type. */
char* duckdb_logical_type_to_string(duckdb_logical_type type);

/* The statement's own text; free it. Null when there is no such statement, or when it has been taken out
   of the list by `duckdb_prepare_extracted_statement`, which does so whether it succeeds or not. */
char* duckdb_extracted_statement_sql(duckdb_extracted_statements statements, idx_t index);

/* Casts by DuckDB's default rules, without a connection. On success *out_value is a new value. On failure it
   is null and *out_error, if `out_error` is given, DuckDB's text (free it) or null. A cast to VARIANT takes
   the complete type in place of an incomplete one; malformed JSON text cast to VARIANT fails, and so does
   JSON nested deeper than 200 levels. */
duckdb_state duckdb_cast_value(duckdb_value value, duckdb_logical_type type, duckdb_value* out_value,
                               char** out_error);

/* The kind of value inside a VARIANT, 0 to 33 in 1.5 (`VariantLogicalType`); UINT32_MAX when the value is not
   a VARIANT, is NULL, or cannot be read. */
uint32_t duckdb_value_variant_type(duckdb_value value);

/* The value inside a VARIANT with its own type, new; null when the value is not a VARIANT or cannot be
   read. */
duckdb_value duckdb_value_variant_child(duckdb_value value);

/* DuckDB's text of the value, whole: it may hold NUL characters, *length is its length in bytes without the
   terminator. Free it. Null, and a length of 0, for a null handle, for NULL and for a value without a
   text. */
char* duckdb_get_varchar_length(duckdb_value value, idx_t* length);

#ifdef __cplusplus
}
#endif

#endif
