#include "backup/export_scripts.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "backup/sql_worker.h"

namespace mduckdb {
namespace {

using testing::ElementsAre;

TEST(ExportScripts, AreSplitOutsideOfQuotes) {
    EXPECT_THAT(
        SplitScript("CREATE TABLE \"a;b\" (i INTEGER DEFAULT 'x;''y');\n\nCREATE VIEW v AS SELECT 1;\n"),
        ElementsAre("CREATE TABLE \"a;b\" (i INTEGER DEFAULT 'x;''y')", "\n\nCREATE VIEW v AS SELECT 1"));
    EXPECT_THAT(SplitScript(""), ElementsAre());
    EXPECT_THAT(SplitScript(" ;\n;"), ElementsAre());
}

TEST(ExportScripts, LoadFromTheFolderAndWithoutTheSizeOfRowGroups) {
    EXPECT_EQ(
        MendLoad("COPY t FROM '/old/t.parquet' (FORMAT 'parquet', COMPRESSION 'ZSTD', ROW_GROUP_SIZE 100000, "
                 "PARQUET_VERSION 'V2')",
                 "/new"),
        "COPY t FROM '/new/t.parquet' (FORMAT 'parquet', COMPRESSION 'ZSTD', PARQUET_VERSION 'V2')");
    EXPECT_EQ(MendLoad("COPY t FROM 't.parquet' (ROW_GROUP_SIZE 100000, FORMAT 'parquet')", "/it's"),
              "COPY t FROM '/it''s/t.parquet' ( FORMAT 'parquet')");
    EXPECT_EQ(MendLoad("COPY \"it's, ROW_GROUP_SIZE 1\" FROM '/o''d/it''s.parquet' (FORMAT 'parquet')", "/n"),
              "COPY \"it's, ROW_GROUP_SIZE 1\" FROM '/n/it''s.parquet' (FORMAT 'parquet')");
}

/** Runs statements, some of which depend on others: "b needs a". */
class Runner {
  public:
    void operator()(const std::string& statement) {
        const std::size_t at = statement.find(" needs ");
        if (at != std::string::npos && done_.count(statement.substr(at + 7)) == 0) {
            throw BackupError("no " + statement.substr(at + 7));
        }
        done_.insert(statement.substr(0, at));
        order_.push_back(statement);
    }
    std::vector<std::string> order_;

  private:
    std::set<std::string> done_;
};

TEST(ExportScripts, RunFailedStatementsAgainAfterTheOthers) {
    Runner runner;
    RunExportScripts({{"c needs b", "b needs a", "a"}, {"load"}}, std::ref(runner));
    EXPECT_THAT(runner.order_, ElementsAre("a", "b needs a", "c needs b", "load"));
}

TEST(ExportScripts, ThrowTheFirstErrorThatRemains) {
    Runner runner;
    try {
        RunExportScripts({{"c needs b", "a", "d needs c"}, {"load"}}, std::ref(runner));
        FAIL() << "nothing thrown";
    } catch (const BackupError& error) {
        EXPECT_STREQ(error.what(), "no b");
    }
    EXPECT_THAT(runner.order_, ElementsAre("a"));
}

}  // namespace
}  // namespace mduckdb
