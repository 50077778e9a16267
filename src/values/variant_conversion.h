#pragma once

#include <duckdb.h>

#include "nbx/value.h"

namespace mduckdb {

/** Makes the host value of what is inside a VARIANT, by its kind; kinds that the host does not have
    become an envelope. A null handle and NULL become a null Boolean. The value stays the caller's and
    may be changed in place. */
nbx::smart_ptr<nbx::I_Value> ConvertVariantValue(duckdb_value child, uint32_t variant_type);

}  // namespace mduckdb
