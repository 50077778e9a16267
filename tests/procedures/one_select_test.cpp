// A procedure runs exactly one SELECT, whatever its arguments contain.
#include <duckdb.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "duckdb_internals/one_select.h"
#include "procedures/handlers.h"
#include "support/alone.h"
#include "support/fake_host.h"
#include "support/temp_folder.h"

namespace mduckdb::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class OneSelectTest : public ::testing::Test {
  protected:
    OneSelectTest() { std::filesystem::create_directory(folder_ / "out"); }

    void SetUp() override {
        RunAlone(nullptr, "COPY (SELECT 1 AS i, 'x' AS t) TO '" + file_ + "' (FORMAT parquet)");
    }
    /** `%` stands for a new path in the folder that must stay empty. */
    std::string Filled(std::string text) const {
        for (std::size_t at; (at = text.find('%')) != text.npos;) {
            text.replace(at, 1, folder_ / "out/x");
        }
        return text;
    }
    void FetchWhere(const std::string& where) {
        host_.reports.clear();
        host_.Call<FetchParquet>({host_.Text(file_), host_.Null(), host_.Text(Filled(where))});
    }
    void CountWhere(const std::string& where) {
        host_.reports.clear();
        host_.Call<ParquetCount>({host_.Text(file_), host_.Text(Filled(where))});
    }
    void ExpectNothingWritten(const std::string& attempt) {
        EXPECT_TRUE(std::filesystem::is_empty(folder_ / "out")) << attempt;
    }

    TempFolder folder_;
    std::string file_ = folder_ / "a.parquet";
    FakeHost host_;
};

TEST_F(OneSelectTest, RefusesEverythingThatIsNotOneSelect) {
    for (const std::string where : {
             "1=1); COPY (SELECT 1) TO '%.csv'; SELECT (1",
             "1=1) AS a; COPY (SELECT 1) TO '%.csv' --",
             "1=1) AS a; ATTACH '%.db'; SELECT * FROM (SELECT 1",
             "1=1) AS a; CREATE TABLE t AS SELECT * FROM (SELECT 1",
             "1=1) AS a; SET temp_directory = '%'; SELECT * FROM (SELECT 1",
             "1=1) AS a; PRAGMA enable_profiling; SELECT * FROM (SELECT 1",
             "1=1) AS a; INSTALL httpfs; SELECT * FROM (SELECT 1",
             "1=1) AS a; LOAD httpfs; SELECT * FROM (SELECT 1",
             "1=1) AS a; EXPORT DATABASE '%'; SELECT * FROM (SELECT 1",
             "1=1) AS a; CALL enable_logging(); SELECT * FROM (SELECT 1",
             "1=1) AS a; CHECKPOINT; SELECT * FROM (SELECT 1",
             "1=1) AS a, (SELECT 1",
             "1=1) AS a UNION ALL SELECT * FROM (SELECT 1, '2'",
             "i IN (SELECT 1 FROM (SHOW TABLES))",
             "i IN (SELECT 1 FROM (SHOW ALL TABLES))",
             "i IN (SELECT 1 FROM (SHOW DATABASES))",
             "i IN (SELECT 1 FROM (DESCRIBE SELECT 1))",
             "i IN (SELECT 1 FROM (SUMMARIZE SELECT 1))",
             "i IN (SELECT 1 FROM (PIVOT (SELECT 1 AS a, 2 AS b) ON a IN (1) USING sum(b)))",
             "i IN (SELECT 1 FROM (SELECT 1 AS a, 2 AS b) PIVOT (sum(b) FOR a IN (1)))",
         }) {
        FetchWhere(where);
        EXPECT_THAT(host_.reports, ElementsAre("fetch_parquet accepts one SELECT only.")) << where;
        EXPECT_FALSE(host_.has_cursor) << where;
        CountWhere(where);
        EXPECT_THAT(host_.reports, ElementsAre("parquet_count accepts one SELECT only.")) << where;
        ExpectNothingWritten(where);
    }
}

TEST_F(OneSelectTest, FailsOnStatementsThatDuckDBDoesNotParseInside) {
    for (const std::string where : {
             "i IN (COPY (SELECT 1) TO '%.csv')",
             "i IN (SELECT 1 FROM (PRAGMA version))",
             "i IN (SELECT 1 FROM (CALL enable_logging()))",
             "i IN (SELECT 1 FROM (EXPLAIN ANALYZE SELECT 1))",
             "i IN (WITH w AS (INSERT INTO t VALUES (1) RETURNING 1) SELECT 1 FROM w)",
             "i IN (WITH w AS (COPY (SELECT 1) TO '%.csv') SELECT 1 FROM w)",
             "i = 1 INTO OUTFILE '%'",
             "1=1) TO '%.csv' --",
         }) {
        FetchWhere(where);
        EXPECT_EQ(1u, host_.reports.size()) << where;
        EXPECT_FALSE(host_.has_cursor) << where;
        ExpectNothingWritten(where);
    }
}

TEST_F(OneSelectTest, RefusesTheFunctionsThatChangeTheEngineAnywhereInTheText) {
    for (const std::string function : {"enable_logging", "disable_logging", "truncate_duckdb_logs",
                                       "enable_profiling", "disable_profiling", "checkpoint",
                                       "force_checkpoint", "json_execute_serialized_sql", "Enable_Logging"}) {
        for (const std::string& where :
             {"i IN (SELECT 1 FROM " + function + "('a'))", "EXISTS (FROM " + function + "())",
              "1 = 1 OR (SELECT count(*) FROM range(2) r(a), " + function + "()) > 0",
              "i IN (WITH w AS (SELECT * FROM " + function + "()) SELECT 1 FROM range(3))",
              "CASE WHEN false THEN EXISTS (FROM range(1) WHERE EXISTS (FROM main." + function +
                  "())) ELSE true END",
              "i = list_sum([x FOR x IN [1] IF EXISTS (FROM \"" + function + "\"())])",
              "i IN (SELECT sum(1) OVER (ORDER BY (SELECT 1 FROM " + function + "())))",
              "i IN ((SELECT 1) UNION ALL (SELECT 1 FROM system.main." + function + "()))"}) {
            std::string name = function;
            std::transform(name.begin(), name.end(), name.begin(), [](char c) { return std::tolower(c); });
            FetchWhere(where);
            EXPECT_THAT(host_.reports, ElementsAre("fetch_parquet does not allow the function " + name + "."))
                << where;
        }
    }
}

TEST_F(OneSelectTest, RefusesTheFunctionsInsideTextsThatAreRunAsQueries) {
    for (const std::string where :
         {"EXISTS (FROM query('SELECT * FROM enable_logging(storage := ''file'', "
          "storage_config := {''path'': ''%''})'))",
          "EXISTS (FROM query('SELECT * FROM query(''FROM force_checkpoint()'')'))"}) {
        FetchWhere(where);
        ASSERT_EQ(1u, host_.reports.size()) << where;
        EXPECT_THAT(host_.reports[0], HasSubstr("does not allow the function")) << where;
    }
}

TEST_F(OneSelectTest, RefusesTheFunctionsInAViewAndInAMacro) {
    const std::string database = folder_ / "a.db";
    RunAlone(
        database.c_str(),
        "CREATE VIEW logging AS SELECT * FROM enable_logging(storage := 'file', storage_config := {'path': "
        "'" +
            Filled("%") +
            "'});"
            "CREATE MACRO m() AS TABLE SELECT * FROM force_checkpoint();"
            "CREATE VIEW macro AS SELECT * FROM m();"
            "CREATE VIEW nested AS SELECT * FROM range(3) WHERE EXISTS (FROM logging);"
            "CREATE VIEW harmless AS SELECT 1 AS i");
    for (const std::string view : {"logging", "macro", "nested"}) {
        host_.reports.clear();
        host_.Call<FetchDuckDB>({host_.Text(database), host_.Text(view)});
        ASSERT_EQ(1u, host_.reports.size()) << view;
        EXPECT_THAT(host_.reports[0], HasSubstr("fetch_duckdb does not allow the function")) << view;
        ExpectNothingWritten(view);
    }
    host_.reports.clear();
    EXPECT_NE(nullptr, host_.Call<FetchDuckDB>({host_.Text(database), host_.Text("harmless")}));
}

TEST_F(OneSelectTest, UsesPathsAndNamesOnlyAsPathsAndNames) {
    for (const std::string text : {"x'); COPY (SELECT 1) TO '%.csv' --", "x') UNION ALL SELECT 1 --",
                                   "x\"; COPY (SELECT 1) TO '%.csv' --", "', filename = '%"}) {
        host_.reports.clear();
        const std::string filled = Filled(text);
        EXPECT_EQ(nullptr, host_.Call<FetchParquet>({host_.Text(filled)}));
        EXPECT_EQ(nullptr, host_.Call<ParquetSchema>({host_.Text(filled)}));
        EXPECT_EQ(nullptr, host_.Call<ParquetMetadata>({host_.Text(filled)}));
        EXPECT_EQ(nullptr, host_.Call<ParquetCount>({host_.Text(filled)}));
        EXPECT_EQ(nullptr, host_.Call<FetchDuckDB>({host_.Text(filled), host_.Text("t")}));
        EXPECT_EQ(nullptr, host_.Call<FetchDuckDB>({host_.Text(file_), host_.Text(filled)}));
        EXPECT_EQ(nullptr, host_.Call<FetchParquet>({host_.Text(file_), host_.Array({host_.Text(filled)})}));
        EXPECT_EQ(nullptr, host_.Call<FetchParquet>(
                               {host_.Text(file_), host_.Null(), host_.Null(), host_.Text("1; " + filled)}));
        EXPECT_EQ(8u, host_.reports.size()) << text;
        ExpectNothingWritten(text);
    }
}

TEST_F(OneSelectTest, RefusesANulInEveryArgumentThatBecomesSql) {
    const auto with_nul = [&](std::string text) {
        text += '\0';
        return host_.Text(text + "x");
    };
    const std::string tail = " does not accept a NUL character in its arguments.";
    host_.Call<FetchParquet>({with_nul(file_)});
    host_.Call<FetchParquet>({host_.Text(file_), with_nul("i")});
    host_.Call<FetchParquet>({host_.Text(file_), host_.Array({host_.Text("i"), with_nul("t")})});
    host_.Call<FetchParquet>({host_.Text(file_), host_.Null(), with_nul("i = 1")});
    EXPECT_THAT(host_.reports, ::testing::Each("fetch_parquet" + tail));
    EXPECT_EQ(4u, host_.reports.size());
    host_.reports.clear();
    host_.Call<ParquetCount>({host_.Text(file_), with_nul("i = 1")});
    host_.Call<ParquetSchema>({with_nul(file_)});
    host_.Call<ParquetMetadata>({with_nul(file_)});
    host_.Call<FetchDuckDB>({host_.Text(":memory:"), with_nul("t")});
    EXPECT_THAT(host_.reports, ElementsAre("parquet_count" + tail, "parquet_schema" + tail,
                                           "parquet_metadata" + tail, "fetch_duckdb" + tail));
}

TEST_F(OneSelectTest, RunsSubqueriesAndFunctionsInAWhere) {
    for (const std::string where :
         {"i IN (SELECT 1)", "EXISTS (FROM range(3) r WHERE r.range = i)", "len(t) = 1 AND i BETWEEN 0 AND 2",
          "(1 = 1) -- \n AND true", "'); x' <> t", "EXISTS (FROM query('SELECT 1'))",
          "t <> ';' AND t NOT IN ('PRAGMA x;')",
          "i IN (WITH RECURSIVE r AS (SELECT 1 AS a UNION ALL SELECT a + 1 FROM r "
          "WHERE a < 3) SELECT a FROM r)"}) {
        FetchWhere(where);
        EXPECT_THAT(host_.reports, IsEmpty()) << where;
        ASSERT_TRUE(host_.has_cursor) << where;
        EXPECT_EQ(1u, host_.cursor.row_count(host_.cursor.state)) << where;
    }
}

TEST_F(OneSelectTest, DeliversTheRowsThatSeveralThreadsMadeInAnyOrder) {
    constexpr std::int64_t kRows = 60000;
    RunAlone(nullptr,
             "COPY (SELECT i, 'a text of more than twelve bytes ' || i AS t FROM range(60000) r(i)) TO '" +
                 file_ + "' (FORMAT parquet, ROW_GROUP_SIZE 2048)");
    for (int round = 0; round < 10; ++round) {
        ASSERT_NE(nullptr, host_.Call<FetchParquet>({host_.Text(file_), host_.Null(), host_.Text("i >= 0")}));
        for (std::int64_t i = 0; i < 2 * kRows; i += 997) {
            const std::int64_t row = i * 7919 % kRows;
            ASSERT_EQ(MIRONA_ROW_OK, host_.cursor.go_to_row(host_.cursor.state, row));
            ASSERT_EQ(std::to_string(row), host_.Cell(0));
            ASSERT_EQ("a text of more than twelve bytes " + std::to_string(row), host_.Cell(1));
        }
    }
}

/** Table functions that only read, or change nothing that outlives the statement. */
const std::set<std::string> kKnownTableFunctions{
    "arrow_scan",
    "arrow_scan_dumb",
    "check_peg_parser",
    "duckdb_approx_database_count",
    "duckdb_available_metrics",
    "duckdb_columns",
    "duckdb_connection_count",
    "duckdb_constraints",
    "duckdb_coordinate_systems",
    "duckdb_databases",
    "duckdb_dependencies",
    "duckdb_dialects",
    "duckdb_eviction_queues",
    "duckdb_extension_repositories",
    "duckdb_extensions",
    "duckdb_external_file_cache",
    "duckdb_external_resource_types",
    "duckdb_external_resources",
    "duckdb_functions",
    "duckdb_grammar_extensions",
    "duckdb_indexes",
    "duckdb_keywords",
    "duckdb_log_contexts",
    "duckdb_logs",
    "duckdb_logs_parsed",
    "duckdb_memory",
    "duckdb_optimizers",
    "duckdb_prepared_statements",
    "duckdb_profiling_settings",
    "duckdb_schemas",
    "duckdb_secret_type_parameters",
    "duckdb_secret_types",
    "duckdb_secrets",
    "duckdb_sequences",
    "duckdb_settings",
    "duckdb_table_sample",
    "duckdb_tables",
    "duckdb_temporary_files",
    "duckdb_triggers",
    "duckdb_types",
    "duckdb_variables",
    "duckdb_views",
    "generate_series",
    "glob",
    "histogram",
    "histogram_values",
    "icu_calendar_names",
    "json_each",
    "json_tree",
    "parquet_bloom_probe",
    "parquet_file_metadata",
    "parquet_full_metadata",
    "parquet_kv_metadata",
    "parquet_metadata",
    "parquet_scan",
    "parquet_schema",
    "pg_timezone_names",
    "pragma_collations",
    "pragma_database_size",
    "pragma_metadata_info",
    "pragma_platform",
    "pragma_show",
    "pragma_storage_info",
    "pragma_table_info",
    "pragma_user_agent",
    "pragma_version",
    "query",
    "query_table",
    "range",
    "read_blob",
    "read_csv",
    "read_csv_auto",
    "read_duckdb",
    "read_json",
    "read_json_auto",
    "read_json_objects",
    "read_json_objects_auto",
    "read_ndjson",
    "read_ndjson_auto",
    "read_ndjson_objects",
    "read_parquet",
    "read_single_csv_file",
    "read_single_json_file",
    "read_single_parquet_file",
    "read_text",
    "repeat",
    "repeat_row",
    "seq_scan",
    "sniff_csv",
    "sql_auto_complete",
    "storage_info",
    "summary",
    "test_all_types",
    "test_vector_types",
    "unnest",
    "which_secret",
};

/** Scalar functions that DuckDB does not call the same way twice: they change nothing outside the
    connection, which serves one call. */
const std::set<std::string> kKnownVolatileFunctions{
    "current_connection_id",
    "current_query",
    "current_query_id",
    "current_transaction_id",
    "currval",
    "error",
    "gen_random_uuid",
    "nextval",
    "random",
    "setseed",
    "setval",
    "sleep_ms",
    "stats",
    "uuid",
    "uuidv4",
    "uuidv7",
    "vector_type",
    "write_log",
};

std::set<std::string> AskForNames(const char* sql) {
    duckdb_database database = nullptr;
    duckdb_connection connection = nullptr;
    EXPECT_EQ(DuckDBSuccess, duckdb_open(nullptr, &database));
    EXPECT_EQ(DuckDBSuccess, duckdb_connect(database, &connection));
    std::set<std::string> names;
    {
        ResultHolder result;
        EXPECT_EQ(DuckDBSuccess, duckdb_query(connection, sql, result.Receive()));
        for (idx_t row = 0; row < duckdb_row_count(result.get()); ++row) {
            const TextHolder name(duckdb_value_varchar(result.get(), 0, row));
            names.insert(name.get());
        }
    }
    duckdb_disconnect(&connection);
    duckdb_close(&database);
    return names;
}

TEST(RefusedFunctions, AreAllDuckDBFunctionsThatMayChangeSomething) {
    const auto table_functions = AskForNames(
        "SELECT DISTINCT function_name FROM duckdb_functions() "
        "WHERE function_type IN ('table', 'table_macro')");
    EXPECT_GT(table_functions.size(), 50u);
    for (const std::string& name : table_functions) {
        EXPECT_TRUE(IsRefusedFunction(name) || kKnownTableFunctions.count(name) == 1)
            << name << " is new: refuse it if it changes the engine or writes files";
        EXPECT_FALSE(IsRefusedFunction(name) && kKnownTableFunctions.count(name) == 1) << name;
    }
    for (const std::string& name :
         AskForNames("SELECT DISTINCT function_name FROM duckdb_functions() WHERE stability = 'VOLATILE'")) {
        EXPECT_EQ(1u, kKnownVolatileFunctions.count(name)) << name << " is new";
    }
}

}  // namespace
}  // namespace mduckdb::test
