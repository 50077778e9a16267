#pragma once

#include <duckdb/common/types/vector.hpp>
#include <duckdb/function/cast/default_casts.hpp>

/* What DuckDB 1.5 and 2.0 name differently in a cast that has been looked up. */
namespace mduckdb::version {

#if MDUCKDB_DUCKDB_MAJOR == 1

/** What the cast needs besides the values; null for most. It belongs to the cast. */
inline duckdb::BoundCastData* DataOf(const duckdb::BoundCastInfo& cast) {
    return cast.cast_data.get();
}
inline bool RunCast(const duckdb::BoundCastInfo& cast, duckdb::Vector& source, duckdb::Vector& target,
                    idx_t count, duckdb::CastParameters& parameters) {
    return cast.function(source, target, count, parameters);
}
inline bool IsSameCast(const duckdb::BoundCastInfo& one, const duckdb::BoundCastInfo& other) {
    return one.function == other.function;
}

#else

inline duckdb::BoundCastData* DataOf(const duckdb::BoundCastInfo& cast) {
    return cast.GetCastData().get();
}
inline bool RunCast(const duckdb::BoundCastInfo& cast, duckdb::Vector& source, duckdb::Vector& target,
                    idx_t count, duckdb::CastParameters& parameters) {
    return cast.Cast(source, target, count, parameters);
}
inline bool IsSameCast(const duckdb::BoundCastInfo& one, const duckdb::BoundCastInfo& other) {
    return one.Equals(other);
}

#endif

}  // namespace mduckdb::version
