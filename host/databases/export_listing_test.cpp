#include "databases/export_listing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace mduckdb_host {
namespace {

TEST(LoadScript, ReturnsTablesAndFiles) {
    const auto tables = ParseLoadScript(
        "COPY t FROM '/b/t.parquet' (FORMAT 'parquet', ROW_GROUP_SIZE 100000);\n"
        "COPY \"s x\".\"T'é FROM 'q\"(a, \"b(\") FROM '/it''s/q.parquet' (FORMAT 'parquet');\n");
    ASSERT_EQ(tables.size(), 2U);
    EXPECT_EQ(tables[0].name, "t");
    EXPECT_EQ(tables[0].file, "/b/t.parquet");
    EXPECT_EQ(tables[1].name, "\"s x\".\"T'é FROM 'q\"");
    EXPECT_EQ(tables[1].file, "/it's/q.parquet");
}

TEST(LoadScript, IsEmptyForAnEmptyDatabase) {
    EXPECT_TRUE(ParseLoadScript("").empty());
    EXPECT_TRUE(ParseLoadScript("COPY t").empty());
}

class ExportFolderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        folder_ = std::filesystem::path(::testing::TempDir()) / "mduckdb-export-listing";
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_ / "one");
        std::ofstream(folder_ / "one/load.sql") << "COPY t FROM '/elsewhere/t.parquet' (FORMAT 'parquet');";
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::filesystem::path folder_;
};

TEST_F(ExportFolderTest, UsesTheFilesOfTheFolderThatWasMoved) {
    EXPECT_EQ(ReadExport((folder_ / "one").string())[0].file, "/elsewhere/t.parquet");
    std::ofstream(folder_ / "one/t.parquet") << "12345";
    EXPECT_EQ(ReadExport((folder_ / "one").string())[0].file, (folder_ / "one/t.parquet").string());
    EXPECT_EQ(GetFolderSize((folder_ / "one").string()),
              5 + std::filesystem::file_size(folder_ / "one/load.sql"));
}

TEST_F(ExportFolderTest, ListsTheBackupsInAFolderThatIsNotABackup) {
    try {
        ReadExport(folder_.string());
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("\n  " + (folder_ / "one").string()), std::string::npos);
    }
    EXPECT_EQ(GetFolderSize((folder_ / "missing").string()), 0U);
}

}  // namespace
}  // namespace mduckdb_host
