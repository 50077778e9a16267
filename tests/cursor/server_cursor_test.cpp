#include <chrono>
#include <future>

#include "base/engine_lock.h"
#include "cursor_fixture.h"

namespace mduckdb {
namespace {

const std::string kNoData = CursorError("Data is not available. Use NextRecord() to fetch data.");

class ServerCursor : public testing::Test {
  protected:
    Cursor Select(const std::string& sql) const { return database_.Select(sql, kServerCursor); }

    OpenedDatabase database_;
};

TEST_F(ServerCursor, HasNoDataBeforeTheFirstRowAndAfterTheLast) {
    const Cursor cursor = Select("SELECT 1");
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(0); }), kNoData);
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_EQ(DescribeField(*cursor, 0), "Long 1");
    EXPECT_FALSE(cursor->NextRecord());
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(0); }), kNoData);
    EXPECT_FALSE(cursor->NextRecord());
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(0); }), kNoData);
}

TEST_F(ServerCursor, IsAtTheEndAtOnceWithoutRows) {
    const Cursor cursor = Select("SELECT 1 WHERE false");
    EXPECT_FALSE(cursor->NextRecord());
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(0); }), kNoData);
}

TEST_F(ServerCursor, RefusesToCountAndToMoveOtherThanForward) {
    const Cursor cursor = Select("SELECT 1");
    const auto refusal = [](const char* operation) {
        return CursorError(std::string(operation) + " is not supported for server-side cursors");
    };
    EXPECT_EQ(ErrorOf([&] { cursor->get_RecordCount(); }), refusal("get_RecordCount()"));
    EXPECT_EQ(ErrorOf([&] { cursor->get_CurrentRecord(); }), refusal("get_CurrentRecord()"));
    EXPECT_EQ(ErrorOf([&] { cursor->put_CurrentRecord(1); }), refusal("put_CurrentRecord()"));
    EXPECT_EQ(ErrorOf([&] { cursor->FirstRecord(); }), refusal("FirstRecord()"));
    EXPECT_EQ(ErrorOf([&] { cursor->LastRecord(); }), refusal("LastRecord()"));
    EXPECT_EQ(ErrorOf([&] { cursor->PrevRecord(); }), refusal("PrevRecord()"));
    EXPECT_TRUE(cursor->NextRecord()) << "a refusal leaves the cursor as it was";
}

TEST_F(ServerCursor, ReportsThatItIsClosedBeforeThatItCannotCount) {
    const Cursor cursor = Select("SELECT 1");
    cursor->Close();
    EXPECT_EQ(ErrorOf([&] { cursor->get_RecordCount(); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor->PrevRecord(); }), kInvalidCursor);
}

TEST_F(ServerCursor, ReadsAFieldAsOftenAsAsked) {
    const Cursor cursor = Select("SELECT 'text', 1.5");
    ASSERT_TRUE(cursor->NextRecord());
    EXPECT_EQ(DescribeField(*cursor, 1), "Double 0x1.8p+0");
    EXPECT_EQ(DescribeField(*cursor, 0), "String text");
    EXPECT_EQ(DescribeField(*cursor, 0), "String text");
}

TEST_F(ServerCursor, IsNotDisturbedByOtherStatementsOnItsConnection) {
    const Cursor cursor = Select("SELECT i FROM range(5000) t(i)");
    int64_t sum = 0;
    while (cursor->NextRecord()) {
        const auto value = cursor->get_Value(0);
        sum += value->get_LLong();
        if (sum % 1000 == 1) {
            database_.Query("SELECT 1");
        }
    }
    EXPECT_EQ(sum, 5000 * 4999 / 2);
}

TEST_F(ServerCursor, MovesWithinItsRowsWhileAnotherThreadHasTheEngineLock) {
    const Cursor cursor = Select("SELECT i FROM range(3) t(i)");
    ASSERT_TRUE(cursor->NextRecord());
    std::future<bool> moved;
    {
        const EngineLockScope lock;
        moved = std::async(std::launch::async, [&] { return cursor->NextRecord(); });
        EXPECT_EQ(moved.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    }
    EXPECT_TRUE(moved.get());
    EXPECT_EQ(DescribeField(*cursor, 0), "LLong 1");
}

TEST_F(ServerCursor, KeepsTheTextOfAFailureThatEndsTheRows) {
    const Cursor cursor = database_.Open(database_.Stream("SELECT CASE WHEN i = 3000000 THEN error('broken "
                                                          "here') ELSE i END AS x FROM range(4000000) t(i)"),
                                         kServerCursor);
    uint64_t rows = 0;
    while (cursor->NextRecord()) {
        ++rows;
    }
    EXPECT_GT(rows, 0U);
    EXPECT_LT(rows, 3000001U);
    EXPECT_NE(FetchErrorOf(*cursor).find("broken here"), std::string::npos) << FetchErrorOf(*cursor);
    EXPECT_FALSE(cursor->NextRecord()) << "the end stays the end";
    EXPECT_NE(FetchErrorOf(*cursor).find("broken here"), std::string::npos)
        << "a further fetch does not replace the text: " << FetchErrorOf(*cursor);
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(0); }), kNoData);
}

TEST_F(ServerCursor, HasNoFailureToReportAtANormalEnd) {
    const Cursor cursor = Select("SELECT 1");
    EXPECT_EQ(FetchErrorOf(*cursor), "");
    while (cursor->NextRecord()) {
    }
    EXPECT_EQ(FetchErrorOf(*cursor), "");
}

}  // namespace
}  // namespace mduckdb
