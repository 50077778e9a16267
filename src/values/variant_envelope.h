#pragma once

#include <string_view>

#include "nbx/value.h"

namespace mduckdb {

/** A host JSON value, never null, that carries a value for which the host has no kind: the name of its
    kind inside a VARIANT and DuckDB's text of it, both UTF-8. */
nbx::smart_ptr<nbx::I_Value> MakeVariantEnvelope(std::string_view type_name, std::string_view value_text);

}  // namespace mduckdb
