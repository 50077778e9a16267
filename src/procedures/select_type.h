#pragma once

#include <cstdint>

namespace mduckdb {

/** The type of the select item for a result column, given the type that DuckDB reported and the one that it
    is normalised to. This is the only function that differs between the two modules: with the normalised type
    the cells arrive as DuckDB stores them, with the reported one they are cast first. */
std::int32_t GetSelectType(std::int32_t reported_type, std::int32_t normalised_type) noexcept;

}  // namespace mduckdb
