#pragma once

#include <array>

/* What engines of DuckDB 1.5 and 2.0 must be told to behave the same. */
namespace mduckdb::version {

/** A key of DuckDB's configuration and its value. */
struct EngineSetting {
    const char* key;
    const char* value;
};

#if MDUCKDB_DUCKDB_MAJOR == 1

inline constexpr std::array<EngineSetting, 0> kEngineSettings = {};
/** Whether DuckDB follows links when it compares a path with the folders that are allowed. */
inline constexpr bool kFollowsLinksInPaths = true;

#else

inline constexpr std::array<EngineSetting, 4> kEngineSettings = {{
    // A statement that cannot be prepared leaves its transaction as it was.
    {"default_transaction_invalidation_policy", "SYNTACTIC_ERRORS_DO_NOT_INVALIDATE"},
    // Files are read by the threads that `threads` allows; others would be started with every engine.
    {"async_threads", "0"},
    // Columns of NULL are INTEGER.
    {"legacy_disable_null_type", "true"},
    // New files can be read by every DuckDB 1.
    {"storage_compatibility_version", "v1.0.0"},
}};

inline constexpr bool kFollowsLinksInPaths = false;

#endif

}  // namespace mduckdb::version
