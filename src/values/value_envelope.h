#pragma once

#include "base/holders.h"
#include "nbx/value.h"

namespace mduckdb {

/** Whether the value is a JSON object by which the host states the DuckDB type of a parameter. */
bool IsValueEnvelope(const nbx::I_JSONValue& json);

/** The value that the envelope describes. Throws `xDuckDBError` for a malformed envelope, for a type word
    that is not known and for a text that is no value of its type. Never gives an empty holder. */
ValueHolder ReadValueEnvelope(const nbx::I_JSONValue& json);

}  // namespace mduckdb
