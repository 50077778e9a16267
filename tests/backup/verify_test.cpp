#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class VerifyBackupTest : public testing::Test {
  protected:
    using Database = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;

    void SetUp() override {
        static std::string export_folder;
        export_folder = folder_ / "export";
        fs::create_directory(export_folder);
        nbx::mrsql::gCreateBackupLocation = [](const nbx::smart_ptr<nbx::I_Location>&) {
            return Location(export_folder);
        };
        export_ = export_folder;
    }
    /** Exports a database that the script created and verifies the export. */
    std::string Verify(const std::string& script) {
        database_ = host_.Created(folder_ / "a.db");
        if (!script.empty()) {
            Execute(*database_, script);
        }
        database_->Backup(Location(folder_.get_Path()));
        return VerifyAgain();
    }
    std::string VerifyAgain() const {
        std::string lines;
        const std::string error = Thrown([&] {
            lines = U(static_cast<nbx::mrsql::I_DuckDBRestore*>(
                          host_->QueryInterface(nbx::mrsql::kDuckDBRestoreInterfaceId))
                          ->VerifyBackup(database_, Location(export_)));
        });
        return error == "none" ? lines : error;
    }

    TempFolder folder_;
    TestHost host_;
    std::string export_;
    Database database_;
};

TEST_F(VerifyBackupTest, FindsNothingWhenAnExportKeepsEverything) {
    EXPECT_EQ(Verify("CREATE SCHEMA s; CREATE TABLE s.t AS SELECT i, 'x' || i AS v FROM range(1000) r(i);"
                     "CREATE VIEW w AS SELECT * FROM s.t; CREATE SEQUENCE q; CREATE MACRO m(a) AS a + 1"),
              "");
}

TEST_F(VerifyBackupTest, ListsWhatAnExportLoses) {
    const std::string lines = Verify(
        "CREATE TABLE t (i INTERVAL, z TIMETZ); COMMENT ON TABLE t IS 'lost';"
        "INSERT INTO t VALUES (INTERVAL 1 microsecond, '10:00:00+01')");
    EXPECT_THAT(lines, HasSubstr("table main.t: comment is 'lost' in the database, nothing in the backup"));
    EXPECT_THAT(lines, HasSubstr("table \"main\".\"t\": the rows differ, 1 row in both"));
}

TEST_F(VerifyBackupTest, ImportsViewsInAnyOrder) {
    // DuckDB writes the views in the order of their creation.
    EXPECT_EQ(Verify("CREATE VIEW b AS SELECT 1 AS i; CREATE VIEW a AS SELECT i FROM b;"
                     "CREATE OR REPLACE VIEW b AS SELECT 2 AS i"),
              "");
}

TEST_F(VerifyBackupTest, OfAnEmptyDatabaseFindsNothing) {
    EXPECT_EQ(Verify(""), "");
}

TEST_F(VerifyBackupTest, ReportsMissingRows) {
    ASSERT_EQ(Verify("CREATE TABLE t AS SELECT 1 AS i"), "");
    Execute(*database_, "INSERT INTO t VALUES (2)");
    EXPECT_EQ(VerifyAgain(), "table \"main\".\"t\": 2 rows in the database, 1 row in the backup");
}

TEST_F(VerifyBackupTest, OfAnExportWithoutAFileIsAnErrorAndLeavesNothingBehind) {
    ASSERT_EQ(Verify("CREATE TABLE t AS SELECT 1 AS i"), "");
    fs::remove(export_ + "/t.parquet");
    EXPECT_THAT(VerifyAgain(), HasSubstr("t.parquet"));
    for (const auto& entry : fs::directory_iterator(folder_.get_Path())) {
        EXPECT_THAT(entry.path().string(), testing::Not(HasSubstr(".part-")));
    }
}

/** Restores the export into another database. */
TEST_F(VerifyBackupTest, IsRightThatAnExportWithViewsInAnyOrderRestores) {
    ASSERT_EQ(Verify("CREATE TABLE t AS SELECT 7 AS i; CREATE VIEW b AS SELECT 1 AS i; CREATE VIEW a AS "
                     "SELECT i FROM b;"
                     "CREATE OR REPLACE VIEW b AS SELECT i FROM t"),
              "");
    const Database restored = host_->RestoreDatabase(Location(folder_ / "b.db"), Location(export_));
    restored->Open();
    EXPECT_EQ(QueryText(*restored, "SELECT i FROM a"), "7");
}

TEST_F(VerifyBackupTest, IsRightThatAnExportOfAnEmptyDatabaseRestores) {
    ASSERT_EQ(Verify(""), "");
    EXPECT_EQ(Thrown([&] { host_->RestoreDatabase(Location(folder_ / "b.db"), Location(export_)); }), "none");
    EXPECT_TRUE(fs::exists(folder_ / "b.db"));
}

TEST_F(VerifyBackupTest, IsRightThatSuchAnExportRestoresFromAnotherFolder) {
    ASSERT_EQ(Verify("CREATE TABLE t AS SELECT 7 AS i; CREATE VIEW b AS SELECT 1 AS i; CREATE VIEW a AS "
                     "SELECT i FROM b;"
                     "CREATE OR REPLACE VIEW b AS SELECT 2 AS i"),
              "");
    const std::string moved = folder_ / "moved";
    fs::rename(export_, moved);
    const Database restored = host_->RestoreDatabase(Location(folder_ / "b.db"), Location(moved));
    restored->Open();
    EXPECT_EQ(QueryText(*restored, "SELECT sum(i) FROM t"), "7");
}

}  // namespace
