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
};

inline const ExpectedByVersion& get_ExpectedByVersion() {
    static const ExpectedByVersion kDuckDB1 = {{}};
    static const ExpectedByVersion kDuckDB2 = {
        {"default_transaction_invalidation_policy=SYNTACTIC_ERRORS_DO_NOT_INVALIDATE",
         "legacy_disable_null_type=true", "storage_compatibility_version=v1.0.0"}};
    return std::string_view(duckdb_library_version()).substr(0, 3) == "v1." ? kDuckDB1 : kDuckDB2;
}
