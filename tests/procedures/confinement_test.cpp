// A call of a procedure reads files of the allowed folders only, whatever its arguments say.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <vector>

#include "engines/engine_files.h"
#include "limited_calls.h"

namespace mduckdb::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kSecret = "the secret outside";

/** Folders `in` and `out` with the same files, of which only the first may be read; the content of `out` says
    so. */
class ConfinementTest : public LimitedCalls {
  protected:
    ConfinementTest() {
        for (const std::string& folder : {in_, out_}) {
            fs::create_directories(folder + "/sub");
            const std::string text = folder == in_ ? "allowed" : kSecret;
            const std::string select = "SELECT 1 AS i, '" + text + "' AS t";
            RunAlone(nullptr, "COPY (" + select + ") TO '" + folder + "/a.parquet' (FORMAT parquet)");
            RunAlone(nullptr, "COPY (" + select + ") TO '" + folder + "/sub/b.parquet' (FORMAT parquet)");
            RunAlone((folder + "/a.db").c_str(),
                     "CREATE TABLE t AS " + select + "; CREATE VIEW outside AS FROM read_text('" + out_ +
                         "/a.txt'); CREATE MACRO m() AS TABLE FROM read_text('" + out_ + "/a.txt')");
            std::ofstream(folder + "/a.txt") << text;
        }
        Confine();
    }
    void Confine() {
        DuckDBProcedureLimits limits;
        limits.temp_directory = LocationOf(spill_.get_Path().string());
        limits.memory_mb = 200;
        limits.allowed_directories =
            nbx::MakeObject<nbx::ArrayOfSmartPtrs<nbx::smart_ptr<nbx::I_Location>>>();
        limits.allowed_directories->Append(LocationOf(in_));
        Put(limits);
        before_ = Listing();
    }
    std::set<std::string> Listing() const {
        std::set<std::string> paths;
        for (const auto& entry : fs::recursive_directory_iterator(folder_.get_Path())) {
            paths.insert(entry.path().string());
        }
        return paths;
    }
    /** Everything that the call delivers, or its report. */
    template <class Procedure>
    std::string OutcomeOf(std::vector<FakeValue*> arguments) {
        std::string outcome = ReportOf<Procedure>(std::move(arguments));
        while (host_.has_cursor && host_.cursor.next_row != nullptr && NextRow()) {
            for (std::uint32_t i = 0; i < host_.cursor.column_count; ++i) {
                outcome += host_.Cell(static_cast<std::int32_t>(i)) + "|";
            }
        }
        return outcome;
    }
    std::string Where(const std::string& condition) {
        return OutcomeOf<FetchParquet>({host_.Text(in_ + "/a.parquet"), host_.Null(), host_.Text(condition)});
    }
    std::string Fetch(const std::string& uri) { return OutcomeOf<FetchParquet>({host_.Text(uri)}); }
    std::string FetchTable(const std::string& uri, const std::string& table = "t") {
        return OutcomeOf<FetchDuckDB>({host_.Text(uri), host_.Text(table)});
    }
    void ExpectHarmless(const std::string& outcome, const std::string& attempt) {
        EXPECT_THAT(outcome, Not(HasSubstr("secret"))) << attempt;
        EXPECT_EQ(before_, Listing()) << attempt;
    }

    std::string in_ = folder_ / "in";
    std::string out_ = folder_ / "out";
    std::set<std::string> before_;
};

constexpr const char* kDenied = "disabled by configuration";
constexpr const char* kNotAllowed = "it is not in a folder that procedures may read.";

TEST_F(ConfinementTest, ReadsFilesOfTheAllowedFolders) {
    fs::create_symlink(in_, folder_ / "alias");
    for (const std::string& uri :
         {in_ + "/a.parquet", in_ + "/sub/b.parquet", in_ + "/sub/../a.parquet", in_ + "/*.parquet",
          in_ + "/sub/*", "file://" + in_ + "/a.parquet", folder_ / "alias/a.parquet"}) {
        EXPECT_EQ("1|allowed|", Fetch(uri)) << uri;
        EXPECT_EQ("1|", OutcomeOf<ParquetCount>({host_.Text(uri)})) << uri;
        EXPECT_EQ("", ReportOf<ParquetSchema>({host_.Text(uri)})) << uri;
        EXPECT_EQ("", ReportOf<ParquetMetadata>({host_.Text(uri)})) << uri;
    }
    for (const std::string& uri : {in_ + "/a.db", in_ + "/sub/../a.db", "file:" + in_ + "/a.db",
                                   "duckdb:" + in_ + "/a.db", folder_ / "alias/a.db"}) {
        EXPECT_EQ("1|allowed|", FetchTable(uri)) << uri;
        EXPECT_EQ("1|allowed|", FetchTable(uri, "a.main.t")) << uri;
    }
    EXPECT_EQ("1|allowed|", Where("t IN (SELECT content FROM read_text('" + in_ + "/a.txt'))"));
}

TEST_F(ConfinementTest, RejectsPathsThatLeadElsewhere) {
    fs::create_symlink(out_ + "/a.parquet", in_ + "/link.parquet");
    fs::create_symlink(out_, in_ + "/linked");
    fs::create_symlink(folder_.get_Path(), in_ + "/sub/up");
    before_ = Listing();
    for (const std::string& uri : {out_ + "/a.parquet",
                                   in_ + "/../out/a.parquet",
                                   in_ + "/sub/../../out/a.parquet",
                                   in_ + "/link.parquet",
                                   in_ + "/linked/a.parquet",
                                   in_ + "/linked/*.parquet",
                                   in_ + "/sub/up/out/a.parquet",
                                   in_ + "/linked/../out/a.parquet",
                                   in_ + "/linked/sub/../a.parquet",
                                   in_ + "/../*/a.parquet",
                                   folder_ / "*/a.parquet",
                                   in_ + "/l*.parquet",
                                   "file://" + out_ + "/a.parquet",
                                   "file:" + out_ + "/a.parquet",
                                   "FILE://" + out_ + "/a.parquet",
                                   "file://localhost" + out_ + "/a.parquet",
                                   in_ + "x/a.parquet",
                                   in_ + "/./.././out/a.parquet",
                                   std::string("https://127.0.0.1:1/a.parquet"),
                                   std::string("s3://bucket/a.parquet"),
                                   std::string("hf://datasets/a/b/c.parquet"),
                                   std::string("/proc/self/environ"),
                                   std::string("~/a.parquet"),
                                   std::string("/dev/stdin")}) {
        for (const std::string& outcome :
             {Fetch(uri), OutcomeOf<ParquetCount>({host_.Text(uri)}),
              ReportOf<ParquetSchema>({host_.Text(uri)}), ReportOf<ParquetMetadata>({host_.Text(uri)})}) {
            EXPECT_THAT(outcome, HasSubstr(kDenied)) << uri;
            ExpectHarmless(outcome, uri);
        }
    }
    // One link that leads outside makes a pattern fail whole.
    EXPECT_THAT(Fetch(in_ + "/*.parquet"), HasSubstr(kDenied));
}

TEST_F(ConfinementTest, RejectsDatabasesThatLieElsewhere) {
    fs::create_symlink(out_ + "/a.db", in_ + "/link.db");
    fs::create_symlink(out_, in_ + "/linked");
    fs::create_symlink(out_ + "/nowhere.db", in_ + "/broken.db");
    fs::copy_file(in_ + "/a.db", in_ + "/logged.db");
    fs::create_symlink(out_ + "/a.txt", in_ + "/logged.db.wal");
    before_ = Listing();
    for (const std::string& uri : {out_ + "/a.db",
                                   in_ + "/../out/a.db",
                                   in_ + "/link.db",
                                   in_ + "/linked/a.db",
                                   in_ + "/linked/../out/a.db",
                                   in_ + "/linked/sub/../a.db",
                                   "file:" + out_ + "/a.db",
                                   "file://" + out_ + "/a.db",
                                   "file://localhost" + out_ + "/a.db",
                                   "duckdb:" + out_ + "/a.db",
                                   in_ + "/broken.db",
                                   in_ + "/logged.db",
                                   in_ + "x/a.db",
                                   out_ + "/missing.db",
                                   folder_ / "missing/missing.db",
                                   std::string("md:a"),
                                   std::string("sqlite:" + out_ + "/a.db"),
                                   std::string("https://127.0.0.1:1/a.db"),
                                   std::string("/proc/self/environ"),
                                   std::string("~/a.db")}) {
        const std::string outcome = FetchTable(uri);
        EXPECT_THAT(outcome, AllOf(StartsWith("Cannot read '"), HasSubstr(kNotAllowed))) << uri;
        ExpectHarmless(outcome, uri);
    }
    EXPECT_EQ("Unable to open DuckDB database.", FetchTable(in_ + "/missing.db"));
    EXPECT_EQ("Unable to open DuckDB database.", FetchTable(in_ + "/a.txt"));
}

TEST_F(ConfinementTest, KeepsViewsAndMacrosOfADatabaseInside) {
    const std::string outcome = FetchTable(in_ + "/a.db", "outside");
    EXPECT_THAT(outcome, HasSubstr(kDenied));
    ExpectHarmless(outcome, "view");
}

TEST_F(ConfinementTest, RejectsAFileThatThisProcessWrites) {
    TestHost host;
    const auto database = host.Opened(in_ + "/a.db");
    EXPECT_EQ("Cannot read '" + in_ + "/a.db' in limited folders: this process has it open for writing.",
              FetchTable(in_ + "/a.db", "outside"));
    database->Close();
    EXPECT_EQ("1|allowed|", FetchTable(in_ + "/a.db"));
}

TEST_F(ConfinementTest, DoesNotReadThroughAReaderWithoutLimits) {
    Put({});
    FakeHost other;  // calls go through its table from now on; both tables are alike
    ASSERT_NE(nullptr, other.Call<FetchDuckDB>({other.Text(in_ + "/a.db"), other.Text("t")}));
    ASSERT_THAT(FetchTable(in_ + "/a.db", "outside"), HasSubstr(kSecret));
    host_.CloseCursor();  // leaves an idle engine
    Confine();
    EXPECT_THAT(FetchTable(in_ + "/a.db", "outside"), HasSubstr(kDenied));
    EXPECT_EQ("1|allowed|", FetchTable(in_ + "/a.db"));
    host_.CloseCursor();
    EXPECT_THAT(FetchTable(in_ + "/a.db", "outside"), HasSubstr(kDenied));
    EXPECT_EQ(3u, EngineFiles::Get().get_EngineCount()) << "confined engines are reused";
    Put({});
    EXPECT_THAT(FetchTable(in_ + "/a.db", "outside"), HasSubstr(kSecret));
}

TEST_F(ConfinementTest, HasNoWayOutThroughACondition) {
    const std::string text = "'" + out_ + "/a.txt'";
    const std::string x = "'" + out_ + "/x'";
    const auto from = [](const std::string& source) { return "EXISTS (FROM " + source + ")"; };
    const std::vector<std::string> attempts{
        from("read_text(" + text + ")"),
        from("read_blob(" + text + ")"),
        from("read_csv(" + text + ")"),
        from("read_json(" + text + ")"),
        from("read_ndjson_objects(" + text + ")"),
        from("sniff_csv(" + text + ")"),
        from("glob('" + out_ + "/*')"),
        from("glob('" + in_ + "/../*/*')"),
        from("glob('/*')"),
        from("'" + out_ + "/a.parquet'"),
        from("\"" + out_ + "/a.parquet\""),
        from("parquet_scan('" + out_ + "/a.parquet')"),
        from("parquet_schema('" + out_ + "/a.parquet')"),
        from("parquet_kv_metadata('" + out_ + "/a.parquet')"),
        from("parquet_file_metadata('" + out_ + "/a.parquet')"),
        from("parquet_bloom_probe('" + out_ + "/a.parquet', 'i', 1)"),
        from("read_parquet(['" + in_ + "/a.parquet', '" + out_ + "/a.parquet'])"),
        from("read_duckdb('" + out_ + "/a.db', table_name = 't')"),
        from("query('FROM read_text(''" + out_ + "/a.txt'')')"),
        from("query_table('" + out_ + "/a.parquet')"),
        from("read_text('" + in_ + "/../out/a.txt')"),
        from("read_text('file://" + out_ + "/a.txt')"),
        from("read_text('/proc/self/environ')"),
        from("read_text('/proc/self/root" + out_ + "/a.txt')"),
        from("read_text('/proc/self/cwd/x')"),
        from("read_csv('https://127.0.0.1:1/a.csv')"),
        from("read_csv(" + text + ", store_rejects = true)"),
        "1=1); ATTACH '" + out_ + "/a.db' AS o; SELECT (1",
        "1=1); COPY (SELECT 1) TO " + x + "; SELECT (1",
        "1=1); COPY (SELECT 1) TO '" + in_ + "/x'; SELECT (1",
        "1=1); SET enable_external_access = true; SELECT (1",
        "1=1); RESET allowed_directories; SELECT (1",
        "1=1); LOAD httpfs; SELECT (1",
        "1=1); INSTALL httpfs; SELECT (1",
        "1=1); EXPORT DATABASE " + x + "; SELECT (1",
        "1=1); IMPORT DATABASE '" + out_ + "'; SELECT (1",
        "1=1); CREATE SECRET (TYPE s3); SELECT (1",
        "1=1); PRAGMA enable_profiling; SELECT (1",
        from("enable_logging(storage_path = " + x + ")"),
        from("enable_profiling('json', " + x + ")"),
        from("checkpoint()"),
        "1 = 1 INTO OUTFILE " + x,
        "i IN (COPY (SELECT 1) TO " + x + ")",
    };
    ASSERT_GE(attempts.size(), 30u);
    for (const std::string& attempt : attempts) {
        const std::string outcome = Where(attempt);
        EXPECT_NE("1|allowed|", outcome) << attempt;
        EXPECT_FALSE(outcome.empty()) << attempt;
        ExpectHarmless(outcome, attempt);
        const std::string count =
            OutcomeOf<ParquetCount>({host_.Text(in_ + "/a.parquet"), host_.Text(attempt)});
        EXPECT_NE("1|", count) << attempt;
        ExpectHarmless(count, attempt);
    }
}

TEST_F(ConfinementTest, HasNoWayOutThroughTheOtherArguments) {
    const std::string file = in_ + "/a.parquet";
    const std::vector<std::string> attempts{
        "'); COPY (SELECT 1) TO '" + out_ + "/x'; --",
        "x' UNION ALL SELECT * FROM read_text('" + out_ + "/a.txt",
        "x') UNION ALL BY NAME SELECT 1 AS i, content AS t FROM read_text('" + out_ + "/a.txt') --",
        "\" FROM read_text('" + out_ + "/a.txt') --",
        "\", (SELECT content FROM read_text('" + out_ + "/a.txt')) AS \"t",
        "(SELECT content FROM read_text('" + out_ + "/a.txt'))",
        "read_text('" + out_ + "/a.txt')",
        "t\".\"content",
        "*, (SELECT content FROM read_text('" + out_ + "/a.txt'))",
        "COLUMNS('.*')",
        "1; ATTACH '" + out_ + "/a.db'",
        "a.main.outside",
        "m()",
        "main.m",
        out_ + "/a.parquet",
        "\"" + out_ + "/a.parquet\"",
        "'" + out_ + "/a.parquet'",
        std::string("i\0; SELECT", 10),
    };
    for (const std::string& attempt : attempts) {
        for (const std::string& outcome :
             {Fetch(attempt), OutcomeOf<ParquetCount>({host_.Text(attempt)}),
              ReportOf<ParquetSchema>({host_.Text(attempt)}),
              ReportOf<ParquetMetadata>({host_.Text(attempt)}),
              OutcomeOf<FetchParquet>({host_.Text(file), host_.Text(attempt)}),
              OutcomeOf<FetchParquet>({host_.Text(file), host_.Array({host_.Text(attempt)})}),
              OutcomeOf<FetchParquet>({host_.Text(file), host_.Null(), host_.Null(), host_.Text(attempt)}),
              FetchTable(attempt), FetchTable(in_ + "/a.db", attempt),
              OutcomeOf<FetchDuckDB>({host_.Text(in_ + "/a.db"), host_.Text("t"), host_.Text(attempt)})}) {
            EXPECT_FALSE(outcome.empty()) << attempt;
            EXPECT_THAT(outcome, Not(StartsWith("1|"))) << attempt;
            EXPECT_THAT(outcome, Not(HasSubstr(kSecret))) << attempt;
        }
        EXPECT_EQ(before_, Listing()) << attempt;
    }
}

TEST_F(ConfinementTest, ReadsNothingThatAnotherCallHasSpilled) {
    std::ofstream(spill_ / "x.txt") << kSecret;
    const std::string path = spill_ / "x.txt";
    const std::string engine_folder = "current_setting('temp_directory')";
    EXPECT_THAT(Where("EXISTS (FROM read_text('" + path + "'))"), HasSubstr(kDenied));
    EXPECT_THAT(Where("EXISTS (FROM glob('" + spill_.get_Path().string() + "/*/*'))"), HasSubstr(kDenied));
    EXPECT_EQ("1|allowed|", Where("contains(" + engine_folder + ", '" + spill_.get_Path().string() + "')"));
}

TEST_F(ConfinementTest, CallsNoNetworkAndLoadsNoExtension) {
    const std::string path = in_ + "/s.db";
    std::ofstream(path) << "SQLite format 3" << '\0' << std::string(4096, 'x');
    EXPECT_EQ("Unable to open DuckDB database.", FetchTable(path));
    EXPECT_EQ("1|allowed|", Where("current_setting('lock_configuration') AND NOT "
                                  "current_setting('enable_external_access') AND NOT "
                                  "current_setting('autoinstall_known_extensions') AND NOT "
                                  "current_setting('autoload_known_extensions')"));
}

TEST_F(ConfinementTest, TakesARelativePathFromTheWorkingFolder) {
    const fs::path before = fs::current_path();
    fs::current_path(in_);
    const std::string inside = Fetch("a.parquet");
    const std::string database = FetchTable("a.db");
    const std::string outside = Fetch("../out/a.parquet");
    const std::string other = FetchTable("../out/a.db");
    const std::string missing = FetchTable("missing.db");
    fs::current_path(before);
    EXPECT_EQ("1|allowed|", inside);
    EXPECT_EQ("1|allowed|", database);
    EXPECT_THAT(outside, HasSubstr(kDenied));
    EXPECT_THAT(other, HasSubstr(kNotAllowed));
    EXPECT_EQ("Unable to open DuckDB database.", missing);
}

}  // namespace
}  // namespace mduckdb::test
