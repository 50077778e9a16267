// The rows of a cursor are in DuckDB's buffer manager, which bounds and spills them.
#include <filesystem>
#include <fstream>

#include "cursor_fixture.h"
#include "support/peak_memory.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

class ManagedCursor : public testing::Test {
  protected:
    void Limit(std::int64_t megabytes) {
        Execute("SET temp_directory = '" + (folder_ / "spill") + "'");
        Execute("SET threads = 2");
        Execute("SET memory_limit = '" + std::to_string(megabytes) + "MB'");
    }
    void Execute(const std::string& sql) { database_->SqlExecute(FromUtf8(sql), nullptr); }
    Cursor Select(const std::string& sql, std::uint32_t location = kServerCursor) {
        return database_->SqlSelect(FromUtf8(sql), location, nullptr);
    }

    TempFolder folder_;
    OpenedDatabase database_;
};

TEST_F(ManagedCursor, KeepsAServerCursorsRowsWithinTheMemoryLimit) {
#ifdef MDUCKDB_TEST_IS_SANITIZED
    GTEST_SKIP() << "A sanitizer's own memory hides what is measured here";
#endif
    const MemoryBound bound;
    Limit(bound.limit_mb);
    const PeakMemory peak;
    const Cursor cursor = Select("SELECT i, i * 3 AS t, i::DOUBLE / 2 AS d FROM range(" +
                                 std::to_string(bound.rows) + ") r(i)");
    std::int64_t rows = 0;
    for (; cursor->NextRecord(); ++rows) {
        if (rows % 1021 == 0) {
            ASSERT_EQ(cursor->get_Value(0)->get_LLong(), rows);
            ASSERT_EQ(cursor->get_Value(1)->get_LLong(), rows * 3);
            ASSERT_EQ(cursor->get_Value(2)->get_Double(), static_cast<double>(rows) / 2);
        }
    }
    EXPECT_EQ(rows, bound.rows);
    EXPECT_LE(peak.get_Bytes(), bound.peak_bytes);
    RecordProperty("peak_bytes", std::to_string(peak.get_Bytes()));
}

TEST_F(ManagedCursor, CountsItsRowsAsDuckDBsMemory) {
    const auto held = [&] {
        const Cursor cursor = Select("SELECT sum(memory_usage_bytes)::BIGINT FROM duckdb_memory()");
        cursor->NextRecord();
        return cursor->get_Value(0)->get_LLong();
    };
    const std::int64_t before = held();
    Cursor cursor = Select("SELECT i FROM range(1000000) r(i)");
    EXPECT_GE(held() - before, 8'000'000);
    cursor->Close();
    EXPECT_LT(held() - before, 1'000'000);
    Cursor client = Select("SELECT i FROM range(1000000) r(i)", kClientCursor);
    EXPECT_EQ(client->get_RecordCount(), 1'000'000u);
}

TEST_F(ManagedCursor, ReportsRowsWhoseSpilledFileIsGone) {
    Limit(16);
    const Cursor cursor = Select("SELECT i, i AS j FROM range(4000000) r(i)");
    ASSERT_TRUE(cursor->NextRecord());
    // With room for all rows DuckDB spills no more: a file that grows again would have zeros in place of the
    // rows.
    Execute("SET memory_limit = '1GB'");
    int emptied = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_ / "spill")) {
        if (entry.is_regular_file()) {
            std::filesystem::resize_file(entry.path(), 0);
            ++emptied;
        }
    }
    ASSERT_GT(emptied, 0);
    std::int64_t rows = 1;
    const std::string error = ErrorOf([&] {
        for (; cursor->NextRecord(); ++rows) {
            ASSERT_EQ(cursor->get_Value(0)->get_LLong(), rows);
        }
    });
    EXPECT_LT(rows, 4'000'000);
    EXPECT_EQ(error.rfind("72501|:memory:|", 0), 0u) << error;
    EXPECT_NE(error.find("IO Error"), std::string::npos) << error;
    EXPECT_EQ(Select("SELECT 1")->NextRecord(), true);
}

TEST_F(ManagedCursor, LosesItsRowsWithItsDatabaseAndCausesNoHarm) {
    const Cursor server =
        Select("SELECT i, 'a text of more than twelve bytes ' || i FROM range(100000) r(i)");
    const Cursor removed =
        Select("SELECT i, 'a text of more than twelve bytes ' || i FROM range(100000) r(i)");
    const auto result = database_->SqlQuery(FromUtf8("SELECT 1; SELECT i FROM range(100000) r(i); SELECT 3"),
                                            kServerCursor, nullptr);
    const auto statement = database_->CreateStatement(FromUtf8("SELECT i FROM range(100000) r(i)"));
    statement->ExecuteAll();
    ASSERT_TRUE(server->NextRecord());
    ASSERT_TRUE(removed->NextRecord());
    const auto value = server->get_Value(1);
    database_->RemoveCursor(removed.get());
    database_->RemoveQueryResult(result.get());
    database_->RemoveStatement(statement.get());
    database_->Close();
    EXPECT_EQ(ErrorOf([&] { server->NextRecord(); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { removed->NextRecord(); }), kInvalidCursor);
    EXPECT_EQ(Describe(value.get()), "String a text of more than twelve bytes 0");
}

}  // namespace
}  // namespace mduckdb
