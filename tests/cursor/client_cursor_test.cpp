#include <atomic>
#include <thread>

#include "cursor_fixture.h"
#include "nbx/hooks.h"

namespace mduckdb {
namespace {

class ClientCursor : public testing::Test {
  protected:
    Cursor Select(const std::string& sql) const { return database_.Select(sql, kClientCursor); }

    OpenedDatabase database_;
};

TEST_F(ClientCursor, StartsWithoutACurrentRecord) {
    const Cursor cursor = Select("SELECT 1");
    EXPECT_EQ(cursor->get_CurrentRecord(), 0U);
    EXPECT_EQ(cursor->get_RecordCount(), 1U);
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(0); }), CursorError("No current record."));
    EXPECT_FALSE(cursor->PrevRecord());
    EXPECT_EQ(cursor->get_CurrentRecord(), 0U);
}

TEST_F(ClientCursor, MovesForwardToTheLastRecordAndStaysThere) {
    const Cursor cursor = Select("SELECT i FROM range(3) t(i)");
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_FALSE(cursor->NextRecord());
    EXPECT_EQ(cursor->get_CurrentRecord(), 3U);
    EXPECT_EQ(DescribeField(*cursor, 0), "LLong 2");
}

TEST_F(ClientCursor, DoesNotLeaveTheFirstRecordBackward) {
    const Cursor cursor = Select("SELECT i FROM range(3) t(i)");
    EXPECT_TRUE(cursor->FirstRecord());
    EXPECT_FALSE(cursor->PrevRecord());
    EXPECT_EQ(cursor->get_CurrentRecord(), 1U);
}

TEST_F(ClientCursor, RejectsMissingRecords) {
    const Cursor cursor = Select("SELECT i FROM range(3) t(i)");
    EXPECT_TRUE(cursor->put_CurrentRecord(2));
    EXPECT_FALSE(cursor->put_CurrentRecord(0));
    EXPECT_FALSE(cursor->put_CurrentRecord(4));
    EXPECT_FALSE(cursor->put_CurrentRecord(UINT32_MAX));
    EXPECT_EQ(cursor->get_CurrentRecord(), 2U);
    EXPECT_TRUE(cursor->LastRecord());
    EXPECT_EQ(cursor->get_CurrentRecord(), 3U);
    EXPECT_TRUE(cursor->PrevRecord());
    EXPECT_EQ(DescribeField(*cursor, 0), "LLong 1");
}

TEST_F(ClientCursor, HasNoRecordToMoveToWhenThereAreNoRows) {
    const Cursor cursor = Select("SELECT 1 WHERE false");
    EXPECT_EQ(cursor->get_RecordCount(), 0U);
    EXPECT_FALSE(cursor->FirstRecord());
    EXPECT_FALSE(cursor->LastRecord());
    EXPECT_FALSE(cursor->NextRecord());
    EXPECT_FALSE(cursor->PrevRecord());
    EXPECT_EQ(cursor->get_CurrentRecord(), 0U);
}

TEST_F(ClientCursor, SharesItsRows) {
    Cursor cursor = Select("SELECT i, 'x' || i FROM range(3000) t(i)");
    const nbx::smart_ptr<nbx::ValueRows> rows = GetClientCursorRows(cursor.get());
    EXPECT_EQ(GetClientCursorRows(cursor.get()).get(), rows.get());
    ASSERT_EQ(rows->get_Count(), 3000U);
    ASSERT_TRUE(cursor->put_CurrentRecord(2500));
    EXPECT_EQ(cursor->get_Value(1).get(), rows->get_Item(2499)->get_Item(1).get());
    cursor.reset();
    EXPECT_EQ(Describe(rows->get_Item(2999)->get_Item(1).get()), "String x2999");
    EXPECT_EQ(rows->get_Item(0)->get_Count(), 2U);
}

TEST_F(ClientCursor, KeepsTheRowsBeforeAFailureAndItsText) {
    // DuckDB stops the other threads of a failed query by an interrupt of its own, which a reader of the rows
    // may see before the cause.
    database_.Query("SET threads = 1");
    const Cursor cursor = database_.Open(database_.Stream("SELECT CASE WHEN i = 3000000 THEN error('broken "
                                                          "here') ELSE i END AS x FROM range(4000000) t(i)"),
                                         kClientCursor);
    EXPECT_GT(cursor->get_RecordCount(), 0U);
    EXPECT_LT(cursor->get_RecordCount(), 3000001U);
    EXPECT_NE(FetchErrorOf(*cursor).find("broken here"), std::string::npos) << FetchErrorOf(*cursor);
}

/** A host in which calls are interrupted. */
struct InterruptibleHost {
    InterruptibleHost() : old(nbx::mrsql::gpIsLocalSqlCall_PTR) {
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    }
    ~InterruptibleHost() { nbx::mrsql::gpIsLocalSqlCall_PTR = old; }

    bool (*old)();
};

TEST_F(ClientCursor, ReadingItsRowsStopsAtAnInterruptAndLeaksNothing) {
    const InterruptibleHost host;
    ResultHolder result = database_.Query("SELECT i FROM range(10000) t(i)");
    database_->Interrupt();
    EXPECT_EQ(ErrorOf([&] { database_.Open(std::move(result), kClientCursor); }), "57501||");
    EXPECT_EQ(Select("SELECT 1")->get_RecordCount(), 1U) << "an interrupt counts once";
    database_->Close();  // would close the dead cursor if it were still in the list
}

TEST_F(ClientCursor, AnInterruptFromAnotherThreadStopsALongRead) {
    const InterruptibleHost host;
    ResultHolder result = database_.Query("SELECT i, i::VARCHAR FROM range(3000000) t(i)");
    std::atomic<bool> is_over{false};
    std::thread other([&] {
        while (!is_over) {
            database_->Interrupt();
            std::this_thread::yield();
        }
    });
    const std::string error = ErrorOf([&] { database_.Open(std::move(result), kClientCursor); });
    is_over = true;
    other.join();
    EXPECT_EQ(error, "57501||");
}

TEST_F(ClientCursor, IsInvalidAtOnceWhenItsDatabaseClosesWhileItReads) {
    for (int round = 0; round < 5; ++round) {
        OpenedDatabase database;
        ResultHolder result = database.Query("SELECT i, i::VARCHAR FROM range(200000) t(i)");
        std::thread other([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
            database->Close();
        });
        const std::string error = ErrorOf([&] { database.Open(std::move(result), kClientCursor); });
        other.join();
        EXPECT_TRUE(error.empty() || error == kInvalidCursor) << error;
    }
}

TEST_F(ClientCursor, IsCompleteBeforeADatabaseThatClosesOnAnotherThreadReachesIt) {
    for (int round = 0; round < 300; ++round) {
        OpenedDatabase database;
        ResultHolder result = database.Query("SELECT 1");
        std::atomic<bool> is_begun{false};
        std::thread other([&] {
            while (!is_begun) {
                // Spins: the constructor takes microseconds.
            }
            database->Close();
        });
        const uint32_t location = round % 2 == 0 ? kClientCursor : kServerCursor;
        is_begun = true;
        const std::string error = ErrorOf([&] { database.Open(std::move(result), location); });
        other.join();
        EXPECT_TRUE(error.empty() || error == kInvalidCursor) << error;
    }
}

}  // namespace
}  // namespace mduckdb
