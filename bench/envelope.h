#pragma once

#include <duckdb.h>

#include <string>

namespace bench {

/** Binds a VARIANT that travels as JSON text, by nlohmann's reader and bare calls. The text is
    `{"duckdb_variant": true, "variant_type": ..., "value": ...}`. */
void BindEnvelope(duckdb_prepared_statement prepared, idx_t index, const std::string& json);

}  // namespace bench
