#pragma once

#include <duckdb.h>

#include <string>
#include <string_view>
#include <vector>

/** What the versions of DuckDB do differently, although the module is used in the same way. No other file of
   the tests asks for the version. */
struct ExpectedByVersion {
    /** Keys and values that are written to every configuration before the others. */
    std::vector<std::string> engine_settings;
    /** The types of columns that COPY refuses to write to Parquet as a whole when values are impossible. */
    std::vector<duckdb_type> refused_by_parquet;
};

inline const ExpectedByVersion& get_ExpectedByVersion() {
    // DuckDB writes TIMESTAMP_S as microseconds, into which not all seconds fit, and 1.5.5 writes TIME_NS as
    // text.
    static const ExpectedByVersion kDuckDB155 = {{}, {DUCKDB_TYPE_TIMESTAMP_S, DUCKDB_TYPE_TIME_NS}};
    static const ExpectedByVersion kDuckDB1 = {{}, {DUCKDB_TYPE_TIMESTAMP_S}};
    static const ExpectedByVersion kDuckDB2 = {
        {"default_transaction_invalidation_policy=SYNTACTIC_ERRORS_DO_NOT_INVALIDATE",
         "legacy_disable_null_type=true", "storage_compatibility_version=v1.0.0"},
        {DUCKDB_TYPE_TIMESTAMP_S}};
    const std::string_view version = duckdb_library_version();
    if (version == "v1.5.5") {
        return kDuckDB155;
    }
    return version.substr(0, 3) == "v1." ? kDuckDB1 : kDuckDB2;
}
