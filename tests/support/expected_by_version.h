#pragma once

#include <duckdb.h>

#include <set>
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
    /** What remains in the text of a script's statement of one blank before it. */
    std::string blank_before_statement;
    /** The kind of error of a timestamp that a cast to text cannot hold. */
    std::string failed_timestamp_cast;
    /** Whether a statement that DuckDB expands into several is several when a script is split, or one that is
       expanded when it runs. */
    bool expands_when_split;
    /** What precedes the JSON of the error of a statement that cannot be prepared, here a CATALOG error, and
       of one that cannot be expanded, here an IO error. */
    std::string before_unprepared;
    std::string before_unexpanded;
    /** Whether a ".." after a link in the path of an ATTACH leads where it leads for the system. */
    bool attach_follows_links;
    /** Whether the error of parameters without values is no JSON. */
    bool has_plain_parameter_errors;
    /** What the appender says of a table that is missing in a database without a name. */
    std::string missing_table;
    /** How the table t is named in the error of a CHECK. */
    std::string checked_table;
    /** How often a procedure's call looks at a file more often than the bare query, which plans it once. */
    int further_looks;
    /** The tables of DuckDB that count what an engine has done. */
    std::set<std::string> counting_tables;
};

inline const ExpectedByVersion& get_ExpectedByVersion() {
    static const ExpectedByVersion kDuckDB1 = {
        .engine_settings = {},
        // DuckDB writes TIMESTAMP_S as microseconds, into which not all seconds fit.
        .refused_by_parquet = {DUCKDB_TYPE_TIMESTAMP_S},
        .blank_before_statement = " ",
        .failed_timestamp_cast = "Conversion",
        .expands_when_split = true,
        .before_unprepared = "",
        .before_unexpanded = "IO Error: ",
        .attach_follows_links = true,
        .has_plain_parameter_errors = true,
        .missing_table = "Table \".main.nowhere\" could not be found",
        .checked_table = "t",
        .further_looks = 0,
        .counting_tables = {},
    };
    static const ExpectedByVersion kDuckDB155 = [] {
        ExpectedByVersion expected = kDuckDB1;
        // It writes TIME_NS as text.
        expected.refused_by_parquet.push_back(DUCKDB_TYPE_TIME_NS);
        return expected;
    }();
    static const ExpectedByVersion kDuckDB2 = {
        .engine_settings = {"default_transaction_invalidation_policy=SYNTACTIC_ERRORS_DO_NOT_INVALIDATE",
                            "async_threads=0", "legacy_disable_null_type=true",
                            "storage_compatibility_version=v1.0.0"},
        .refused_by_parquet = {DUCKDB_TYPE_TIMESTAMP_S},
        .blank_before_statement = "",
        .failed_timestamp_cast = "INTERNAL",
        .expands_when_split = false,
        .before_unprepared = "Catalog Error: ",
        .before_unexpanded = "",
        .attach_follows_links = false,
        .has_plain_parameter_errors = false,
        .missing_table = "Table '\"\".main.nowhere' could not be found",
        .checked_table = "\"t\"",
        .further_looks = 4,
        .counting_tables = {"duckdb_eviction_queues"},
    };
    const std::string_view version = duckdb_library_version();
    if (version == "v1.5.5") {
        return kDuckDB155;
    }
    return version.substr(0, 3) == "v1." ? kDuckDB1 : kDuckDB2;
}

/** The module's own settings as statements, for an engine that a test opens by itself to compare with. */
inline std::vector<std::string> get_EngineSettingStatements() {
    std::vector<std::string> statements;
    for (const std::string& setting : get_ExpectedByVersion().engine_settings) {
        const std::size_t end = setting.find('=');
        statements.push_back("SET " + setting.substr(0, end) + " = '" + setting.substr(end + 1) + "'");
    }
    return statements;
}
