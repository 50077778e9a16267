#pragma once

#include <cstdint>

namespace mduckdb {

/** The type that the select item of a result column is made for, given the type that DuckDB reported and
    the one that it is normalised to. The only function of which the two modules have their own: with the
    normalised type the cells come as DuckDB stores them, with the reported one they are cast first. */
std::int32_t GetSelectType(std::int32_t reported_type, std::int32_t normalised_type) noexcept;

}  // namespace mduckdb
