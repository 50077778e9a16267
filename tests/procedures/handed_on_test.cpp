// The engine in memory of a finished call serves the next one, which finds nothing of it.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "engines/idle_engines.h"
#include "limited_calls.h"
#include "nbx/mrsql/duckdb_budget.h"
#include "nbx/mrsql/duckdb_census.h"
#include "support/duckdb_faults.h"
#include "support/expected_by_version.h"

namespace mduckdb::test {
namespace {

using nbx::mrsql::I_DuckDBBudget;
using nbx::mrsql::I_DuckDBCensus;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Line = nbx::mrsql::DuckDBCensusLine;

uint64_t CountOpens() {
    return duckdb_faults::CountCalls("duckdb_open_ext");
}

/** The engines and calls of a census. */
class Engines final : public nbx::mrsql::I_DuckDBCensusReader {
  public:
    void Add(const Line& line) override {
        if (line.kind == Line::kEngine) {
            engines.push_back(line);
        } else if (line.kind == Line::kCall) {
            calls.push_back(line);
        }
    }
    std::vector<Line> engines;
    std::vector<Line> calls;
};

/** With a home folder of its own, where DuckDB looks for secrets and extensions. */
class HandedOnTest : public LimitedCalls {
  protected:
    HandedOnTest() {
        setenv("HOME", home_.get_Path().c_str(), 1);
        IdleEngines::CloseAll();
        RunAlone(nullptr, "COPY (SELECT 'one' AS t) TO '" + file_ + "' (FORMAT parquet)");
        duckdb_faults::Reset();
    }
    ~HandedOnTest() override { setenv("HOME", old_home_.c_str(), 1); }

    /** The expression's value in a call of fetch_parquet, as text. */
    std::string Ask(const std::string& expression) {
        const std::string report =
            ReportOf<FetchParquet>({host_.Text(file_), host_.Text("t"),
                                    host_.Text("false UNION ALL SELECT (" + expression + ")::VARCHAR")});
        if (!report.empty() || !NextRow()) {
            return "error: " + report;
        }
        std::string value = host_.Cell(0);
        host_.CloseCursor();
        return value;
    }
    Engines TakeCensus() {
        Engines engines;
        static_cast<I_DuckDBCensus*>(extension_->QueryInterface(nbx::mrsql::kDuckDBCensusInterfaceId))
            ->List(engines);
        return engines;
    }
    /** What all of DuckDB's own tables show, by their names. */
    std::map<std::string, std::string> ReadState() {
        std::map<std::string, std::string> state;
        const std::string names =
            Ask("SELECT string_agg(DISTINCT function_name, ' ' ORDER BY function_name) FROM "
                "duckdb_functions() WHERE function_type = 'table' AND function_name LIKE 'duckdb\\_%' ESCAPE "
                "'\\' AND (len(parameters) = 0 OR function_name = 'duckdb_settings')");
        std::istringstream words(names);
        for (std::string name; words >> name;) {
            // The numbers of catalog entries count on in an engine, and the call's own statement has a name.
            state[name] =
                Ask("SELECT string_agg(t, chr(10) ORDER BY t) FROM (SELECT regexp_replace(r::VARCHAR, "
                    "'oid.: [0-9]+|duckdb_prepare_internal_[0-9a-f-]+', 'oid', 'g') AS t FROM " +
                    name + "() r)");
        }
        return state;
    }

    TempFolder home_;
    std::string old_home_ = std::getenv("HOME");
    std::string file_ = folder_ / "one.parquet";
};

TEST_F(HandedOnTest, OneEngineServesCallAfterCall) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ("2", Ask("1 + 1"));
        EXPECT_EQ("", ReportOf<ParquetCount>({host_.Text(file_)}));
        EXPECT_EQ("", ReportOf<ParquetSchema>({host_.Text(file_)}));
        EXPECT_EQ("", ReportOf<ParquetMetadata>({host_.Text(file_)}));
        EXPECT_EQ("", ReportOf<FetchDuckDB>({host_.Text(":memory:"), host_.Text("duckdb_types")}));
    }
    host_.CloseCursor();
    EXPECT_EQ(1u, CountOpens());
}

TEST_F(HandedOnTest, ACallWhoseCursorIsOpenKeepsItsEngine) {
    ASSERT_EQ("", ReportOf<ParquetCount>({host_.Text(file_)}));
    FakeHost other;
    ASSERT_NE(nullptr, other.Call<ParquetCount>({other.Text(file_)}));
    EXPECT_EQ(2u, CountOpens());
    EXPECT_TRUE(NextRow());
    EXPECT_EQ("1", host_.Cell(0));
}

TEST_F(HandedOnTest, ACallFindsNothingOfTheCallsBeforeIt) {
    const std::map<std::string, std::string> before = ReadState();
    EXPECT_GT(before.size(), 15u);
    EXPECT_EQ(1u, before.count("duckdb_settings"));
    const std::string database = folder_ / "a.db";
    RunAlone(database.c_str(), "CREATE TABLE t AS SELECT 1 AS i; CREATE SEQUENCE s");
    std::ofstream(folder_ / "a.csv") << "a;b\n1;2\n";
    std::vector<std::string> expressions{
        "setseed(0.5)::VARCHAR || random()",
        "write_log('message', level := 'error')",
        "uuid()",
        "SELECT count(*) FROM (SELECT random() AS r FROM range(200000) ORDER BY r)",
        "SELECT count(*) FROM read_duckdb('" + database + "', table_name := 't')",
        "SELECT count(*) FROM '" + (folder_ / "a.csv") + "'",
        "SELECT count(*) FROM read_text('" + (folder_ / "*") + "')",
        "SELECT count(*) FROM query('SELECT 1')",
        "SELECT count(*) FROM which_secret('s3://a/b', 's3')",
        "SELECT current_setting('TimeZone') || current_setting('search_path')",
    };
    // Not every library of DuckDB has this extension.
    if (Ask("SELECT count(*) FROM duckdb_functions() WHERE function_name = 'sql_auto_complete'") != "0") {
        expressions.emplace_back("SELECT count(*) FROM sql_auto_complete('SEL')");
    }
    for (const std::string& expression : expressions) {
        EXPECT_THAT(Ask(expression), ::testing::Not(HasSubstr("error:"))) << expression;
    }
    const uint64_t opens = CountOpens();
    for (const auto& [name, rows] : ReadState()) {
        if (get_ExpectedByVersion().counting_tables.count(name) == 0) {
            EXPECT_EQ(before.at(name), rows) << name;
        }
    }
    EXPECT_EQ(opens, CountOpens()) << "it is the same engine";
    EXPECT_EQ(1u, opens) << "for all calls";
}

TEST_F(HandedOnTest, TheSeedOfOneCallDoesNotChooseTheNumbersOfTheNext) {
    EXPECT_EQ(Ask("setseed(0.5) IS NULL AND random() IS NOT NULL"), "true");
    const std::string first = Ask("random()");
    Ask("setseed(0.5)");
    EXPECT_NE(first, Ask("random()"));
    EXPECT_EQ(1u, CountOpens());
}

TEST_F(HandedOnTest, AFileThatIsRewrittenWithinTheSecondIsReadAnew) {
    const std::string versions[] = {folder_ / "0.parquet", folder_ / "1.parquet"};
    for (int i : {0, 1}) {
        RunAlone(nullptr,
                 "COPY (SELECT " + std::to_string(i) + " AS t) TO '" + versions[i] + "' (FORMAT parquet)");
    }
    ASSERT_EQ(std::filesystem::file_size(versions[0]), std::filesystem::file_size(versions[1]));
    const std::string file = folder_ / "rewritten.parquet";
    duckdb_faults::Reset();
    for (int i = 0; i < 40; ++i) {
        std::filesystem::copy_file(versions[i % 2], file, std::filesystem::copy_options::overwrite_existing);
        ASSERT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
        ASSERT_TRUE(NextRow());
        EXPECT_EQ(std::to_string(i % 2), host_.Cell(0)) << "rewrite " << i;
        host_.CloseCursor();
    }
    EXPECT_EQ(1u, CountOpens());
}

TEST_F(HandedOnTest, ASecretThatIsStoredMeanwhileIsThere) {
    const std::string names = "SELECT string_agg(name, ' ' ORDER BY name) FROM duckdb_secrets()";
    const std::string store = "CREATE OR REPLACE PERSISTENT SECRET ";
    EXPECT_EQ("NULL", Ask(names));
    RunAlone(nullptr, store + "a (TYPE http, BEARER_TOKEN 'x')");
    EXPECT_EQ("a", Ask(names));
    RunAlone(nullptr, store + "b (TYPE http, BEARER_TOKEN 'x')");
    EXPECT_EQ("a b", Ask(names));
    const std::string scope = "SELECT any_value(scope::VARCHAR) FROM duckdb_secrets() WHERE name = 'a'";
    const std::string before = Ask(scope);
    RunAlone(nullptr, store + "a (TYPE http, BEARER_TOKEN 'x', SCOPE 'http://there')");
    EXPECT_NE(before, Ask(scope));
    RunAlone(nullptr, "DROP PERSISTENT SECRET a");
    EXPECT_EQ("b", Ask(names));
}

TEST_F(HandedOnTest, AnExtensionThatIsStoredMeanwhileIsThere) {
    const std::string installed = "SELECT installed FROM duckdb_extensions() WHERE extension_name = 'httpfs'";
    EXPECT_EQ("false", Ask(installed));
    const std::string folder = home_ / (".duckdb/extensions/" + std::string(duckdb_library_version()) + "/" +
                                        Ask("SELECT platform FROM pragma_platform()"));
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/httpfs.duckdb_extension") << "no extension";
    EXPECT_EQ("true", Ask(installed));
    EXPECT_EQ(1u, CountOpens());
}

TEST_F(HandedOnTest, AnotherHomeHasItsOwnSecrets) {
    const TempFolder other;
    const std::string folder = "current_setting('secret_directory')";
    EXPECT_THAT(Ask(folder), HasSubstr(home_.get_Path().string()));
    setenv("HOME", other.get_Path().c_str(), 1);
    EXPECT_THAT(Ask(folder), HasSubstr(other.get_Path().string()));
}

TEST_F(HandedOnTest, TheEngineOfAFailedCallIsClosed) {
    EXPECT_EQ("2", Ask("1 + 1"));
    EXPECT_THAT(Ask("nothing"), HasSubstr("error:"));
    EXPECT_THAT(TakeCensus().engines, IsEmpty());
    EXPECT_EQ("2", Ask("1 + 1"));
    EXPECT_EQ(2u, CountOpens());
}

TEST_F(HandedOnTest, CallsUnderOtherLimitsHaveOtherEngines) {
    const std::string settings = "current_setting('threads') || ' ' || current_setting('memory_limit')";
    const std::string defaults = Ask(settings);
    DuckDBProcedureLimits limits;
    limits.threads = 5;
    limits.memory_mb = 100;
    // The first call of the old limits ends under the new ones.
    ASSERT_EQ("", ReportOf<ParquetCount>({host_.Text(file_)}));
    Put(limits);
    host_.CloseCursor();
    EXPECT_THAT(TakeCensus().engines, IsEmpty());
    EXPECT_EQ("5 95.3 MiB", Ask(settings));
    EXPECT_EQ("5 95.3 MiB", Ask(settings));
    EXPECT_EQ(2u, CountOpens());
    Put({});
    EXPECT_THAT(TakeCensus().engines, IsEmpty());
    EXPECT_EQ(defaults, Ask(settings));
    EXPECT_EQ(3u, CountOpens());
}

TEST_F(HandedOnTest, AConfinedEngineServesConfinedCallsAlone) {
    const TempFolder outside;
    std::ofstream(outside / "a.txt") << "text";
    const std::string read = "SELECT content FROM read_text('" + (outside / "a.txt") + "')";
    EXPECT_EQ("text", Ask(read));
    DuckDBProcedureLimits limits;
    limits.allowed_directories = nbx::MakeObject<nbx::ArrayOfSmartPtrs<nbx::smart_ptr<nbx::I_Location>>>();
    limits.allowed_directories->Append(LocationOf(folder_.get_Path().string()));
    Put(limits);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ("true", Ask("current_setting('lock_configuration')"));
        EXPECT_THAT(Ask(read), HasSubstr("Permission Error"));
    }
    EXPECT_EQ("true", Ask("current_setting('lock_configuration')"));
    Put({});
    EXPECT_EQ("text", Ask(read));
}

TEST_F(HandedOnTest, ABudgetLeavesNoIdleEngines) {
    auto& budget =
        *static_cast<I_DuckDBBudget*>(extension_->QueryInterface(nbx::mrsql::kDuckDBBudgetInterfaceId));
    const std::string threads = "current_setting('threads')";
    const std::string all = Ask(threads);
    budget.put_Budget(0, 7);
    EXPECT_EQ(0u, budget.get_Figures().engines);
    EXPECT_EQ("7", Ask(threads));
    EXPECT_EQ(0u, budget.get_Figures().engines);
    ASSERT_EQ("", ReportOf<ParquetCount>({host_.Text(file_)}));
    budget.put_Budget(0, 0);
    host_.CloseCursor();
    EXPECT_EQ(0u, budget.get_Figures().engines) << "it was opened under the budget";
    EXPECT_EQ(all, Ask(threads));
    EXPECT_EQ(1u, budget.get_Figures().engines);
}

TEST_F(HandedOnTest, TheCensusShowsAnIdleEngineAsOneThatWaits) {
    ASSERT_EQ("", ReportOf<ParquetCount>({host_.Text(file_)}));
    const Engines busy = TakeCensus();
    ASSERT_EQ(1u, busy.engines.size());
    EXPECT_EQ(1u, busy.engines[0].users);
    EXPECT_EQ(0u, busy.engines[0].flags);
    ASSERT_EQ(1u, busy.calls.size());
    EXPECT_EQ(busy.engines[0].number, busy.calls[0].parent);
    host_.CloseCursor();
    const Engines idle = TakeCensus();
    ASSERT_EQ(1u, idle.engines.size());
    EXPECT_EQ(busy.engines[0].number, idle.engines[0].number);
    EXPECT_EQ(0u, idle.engines[0].users);
    EXPECT_EQ(uint32_t{Line::kWaitsToBeClosed}, idle.engines[0].flags);
    EXPECT_EQ(0, idle.engines[0].bytes);
    EXPECT_THAT(idle.calls, IsEmpty());
    ASSERT_EQ("", ReportOf<ParquetCount>({host_.Text(file_)}));
    const Engines again = TakeCensus();
    EXPECT_EQ(busy.engines[0].number, again.engines.at(0).number);
    EXPECT_EQ(0u, again.engines[0].flags);
}

}  // namespace
}  // namespace mduckdb::test
