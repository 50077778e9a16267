#pragma once

#include <duckdb/common/types/vector.hpp>
#if __has_include(<duckdb/common/vector/flat_vector.hpp>)
#include <duckdb/common/vector/flat_vector.hpp>
#endif

namespace mduckdb::version {

/** Tells a flat vector how many elements have been put into it by hand. DuckDB's vectors know their size
   since 2.0: a cast of one that has not been told finds nothing in it, and succeeds. */
template <class Flat = duckdb::FlatVector>
void SetVectorSize(duckdb::Vector& vector, duckdb::idx_t count) {
    if constexpr (requires { Flat::SetSize(vector, count); }) {
        Flat::SetSize(vector, count);
    }
}

}  // namespace mduckdb::version
