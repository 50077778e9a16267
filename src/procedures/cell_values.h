#pragma once

#include <duckdb.h>

#include <cstdint>

#include "mirona/extension_api.h"
#include "procedures/type_tables.h"

namespace mduckdb {

/** Makes the host value of the cell at `row` of a vector's data, which must not be null there; gives null
    for a cell that no host value holds. Throws nothing. */
using CellPacker = mirona_value (*)(const mirona_extension_api& api, mirona_call call, const void* data,
                                    idx_t row);

/** The packer of cells that are to be read as `normalised_type` out of vectors stored as `storage`. Where
    that would reach outside the vector's memory, or take for text what is not, the packer returns null for
    every cell and does not touch the vector. Chosen once a column. */
CellPacker ChooseCellPacker(std::int32_t normalised_type, CellStorage storage) noexcept;

/** How the result stores the cells of the column. */
CellStorage GetColumnStorage(duckdb_result& result, idx_t column);

}  // namespace mduckdb
