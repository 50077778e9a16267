#pragma once

#include <duckdb.h>

#include <cstdint>

#include "mirona/extension_api.h"
#include "procedures/type_tables.h"

namespace mduckdb {

/** Returns the host value of the cell at `row` of a vector's data, which must not be NULL there, or null for
    a cell that no host value can hold. Never throws. */
using CellPacker = mirona_value (*)(const mirona_extension_api& api, mirona_call call, const void* data,
                                    idx_t row);

/** The packer that reads cells as `normalised_type` from vectors stored as `storage`. If that would read
    outside the vector's memory, or read other data as text, the packer returns null for every cell and does
    not touch the vector. Chosen once for each column. */
CellPacker ChooseCellPacker(std::int32_t normalised_type, CellStorage storage) noexcept;

/** How the result stores the cells of the column. */
CellStorage GetColumnStorage(duckdb_result& result, idx_t column);

}  // namespace mduckdb
