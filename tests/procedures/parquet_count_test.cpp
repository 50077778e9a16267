#include <duckdb.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "procedures/handlers.h"
#include "support/fake_host.h"
#include "support/temp_folder.h"

namespace mduckdb::test {
namespace {

using ::testing::IsEmpty;

constexpr std::int64_t kRows = 10'000'000;
constexpr int kFiles = 500;

/** A folder with 500 names of one small file of ten million equal rows. */
class ParquetCountTest : public ::testing::Test {
  protected:
    void SetUp() override {
        duckdb_database engine = nullptr;
        duckdb_connection connection = nullptr;
        ASSERT_EQ(DuckDBSuccess, duckdb_open(nullptr, &engine));
        ASSERT_EQ(DuckDBSuccess, duckdb_connect(engine, &connection));
        const std::string copy = "COPY (SELECT true AS b FROM range(" + std::to_string(kRows) + ")) TO '" +
                                 folder_ / "0.parquet" + "' (ROW_GROUP_SIZE 10000000)";
        EXPECT_EQ(DuckDBSuccess, duckdb_query(connection, copy.c_str(), nullptr)) << copy;
        duckdb_disconnect(&connection);
        duckdb_close(&engine);
    }
    /** The file under this many names in total. */
    void Multiply(int files) {
        for (int i = 1; i < files; ++i) {
            std::filesystem::create_hard_link(folder_ / "0.parquet",
                                              folder_ / (std::to_string(i) + ".parquet"));
        }
    }
    /** The single cell of the result. */
    std::string Count(std::vector<FakeValue*> arguments) {
        EXPECT_NE(nullptr, host_.Call<ParquetCount>(std::move(arguments)));
        EXPECT_THAT(host_.reports, IsEmpty());
        if (!host_.has_cursor) {
            return "no cursor";
        }
        EXPECT_EQ(1u, host_.cursor.row_count(host_.cursor.state));
        EXPECT_EQ(MIRONA_ROW_OK, host_.cursor.next_row(host_.cursor.state));
        return host_.Cell(0);
    }

    TempFolder folder_;
    FakeHost host_;
};

TEST_F(ParquetCountTest, ReturnsNumbersOfMoreThan32BitsInFull) {
    Multiply(kFiles);
    EXPECT_EQ("5000000000", Count({host_.Text(folder_ / "*.parquet")}));
}

TEST_F(ParquetCountTest, CountsAllRowsWhenTheConditionIsBlank) {
    EXPECT_EQ("10000000", Count({host_.Text(folder_ / "0.parquet"), host_.Text("  \t ")}));
    EXPECT_EQ("10000000", Count({host_.Text(folder_ / "0.parquet"), host_.Null()}));
}

TEST_F(ParquetCountTest, CountsTheRowsOfTheCondition) {
    EXPECT_EQ("0", Count({host_.Text(folder_ / "0.parquet"), host_.Text("NOT b")}));
}

}  // namespace
}  // namespace mduckdb::test
