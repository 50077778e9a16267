#pragma once

#include <duckdb/common/types/vector.hpp>
#if MDUCKDB_DUCKDB_MAJOR > 1
#include <duckdb/common/vector/flat_vector.hpp>
#endif

namespace mduckdb::version {

#if MDUCKDB_DUCKDB_MAJOR == 1

/** Tells a flat vector how many elements have been put into it by hand. DuckDB's vectors know their size
   since 2.0: a cast of one that has not been told finds nothing in it, and succeeds. */
inline void SetVectorSize(duckdb::Vector& /*vector*/, idx_t /*count*/) {}

#else

inline void SetVectorSize(duckdb::Vector& vector, idx_t count) {
    duckdb::FlatVector::SetSize(vector, count);
}

#endif

}  // namespace mduckdb::version
