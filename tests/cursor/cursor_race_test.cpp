// Cursors and query results while their database closes on another thread. For ThreadSanitizer above all.
#include <atomic>
#include <chrono>
#include <thread>

#include "cursor_fixture.h"
#include "nbx/mrsql/duckdb_query_result.h"

namespace mduckdb {
namespace {

constexpr int kRounds = 12;

/** Closes the database on another thread as soon as the test has begun to use the child. */
class ClosingElsewhere {
  public:
    explicit ClosingElsewhere(const OpenedDatabase& database)
        : thread_([this, &database] {
              while (!has_begun_) {
                  std::this_thread::yield();
              }
              database->Close();
              has_closed_ = true;
          }) {}
    ~ClosingElsewhere() { thread_.join(); }

    void Begin() { has_begun_ = true; }
    bool HasClosed() const { return has_closed_; }

  private:
    std::atomic<bool> has_begun_{false};
    std::atomic<bool> has_closed_{false};
    std::thread thread_;
};

class CursorRace : public testing::TestWithParam<uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Locations, CursorRace, testing::Values(kServerCursor, kClientCursor),
                         [](const auto& location) {
                             return std::string(location.param == kServerCursor ? "Server" : "Client");
                         });

TEST_P(CursorRace, OfAQueryResultIsReturnedOrNullWhileTheDatabaseCloses) {
    for (int round = 0; round < kRounds; ++round) {
        const OpenedDatabase database;
        const auto result = database->SqlQuery(FromUtf8("SELECT 42"), GetParam(), nullptr);
        Cursor last = result->get_Cursor();
        ASSERT_TRUE(last);
        {
            ClosingElsewhere closing(database);
            while (Cursor cursor = result->get_Cursor()) {
                closing.Begin();
                EXPECT_EQ(cursor->get_ColumnCount(), 1U);
                last = std::move(cursor);
            }
        }
        EXPECT_FALSE(result->get_Cursor());
        EXPECT_EQ(ErrorOf([&] { last->NextRecord(); }), kInvalidCursor);
    }
}

TEST_P(CursorRace, ReadsRightValuesUntilItsDatabaseHasClosed) {
    for (int round = 0; round < kRounds; ++round) {
        const OpenedDatabase database;
        const Cursor cursor = database->SqlSelect(FromUtf8("SELECT 42, 'text'"), GetParam(), nullptr);
        ASSERT_TRUE(cursor->NextRecord());
        std::string error;
        {
            ClosingElsewhere closing(database);
            while (error.empty()) {
                error = ErrorOf([&] {
                    EXPECT_EQ(cursor->get_Value(0)->get_LLong(), 42);
                    EXPECT_EQ(ToUtf8(cursor->get_Value(1)->get_Text()), "text");
                });
                closing.Begin();
            }
        }
        EXPECT_EQ(error, kInvalidCursor);
    }
}

TEST_P(CursorRace, MovesRowByRowUntilItsDatabaseHasClosed) {
    for (int round = 0; round < kRounds; ++round) {
        const OpenedDatabase database;
        const Cursor cursor =
            database->SqlSelect(FromUtf8("SELECT i FROM range(100000) r(i)"), GetParam(), nullptr);
        int64_t rows = 0;
        std::string error;
        {
            ClosingElsewhere closing(database);
            while (error.empty() && rows < 100000) {
                error = ErrorOf([&] {
                    EXPECT_TRUE(cursor->NextRecord());
                    EXPECT_EQ(cursor->get_Value(0)->get_LLong(), rows);
                    ++rows;
                });
                closing.Begin();
            }
        }
        EXPECT_GT(rows, 0);
        EXPECT_TRUE(error == kInvalidCursor || rows == 100000) << error;
        EXPECT_EQ(ErrorOf([&] { cursor->NextRecord(); }), kInvalidCursor);
    }
}

TEST_P(CursorRace, ReturnsItsDatabaseUntilThatHasClosed) {
    for (int round = 0; round < kRounds; ++round) {
        const OpenedDatabase database;
        const Cursor cursor = database->SqlSelect(FromUtf8("SELECT 42"), GetParam(), nullptr);
        int returned = 0;
        {
            ClosingElsewhere closing(database);
            while (const auto owner = cursor->get_Database()) {
                EXPECT_EQ(owner.get(), &*database);
                ++returned;
                closing.Begin();
            }
        }
        EXPECT_GT(returned, 0);
        EXPECT_FALSE(cursor->get_Database());
    }
}

TEST_P(CursorRace, IsBuiltWholeOrRefusedWhileItsDatabaseCloses) {
    for (int round = 0; round < kRounds; ++round) {
        const OpenedDatabase database;
        const auto statement = database->CreateStatement(FromUtf8("SELECT i FROM range(20000) r(i)"));
        statement->PrepareNext();
        std::string error;
        bool had_closed = false;
        {
            ClosingElsewhere closing(database);
            closing.Begin();
            std::this_thread::sleep_for(std::chrono::microseconds(100 * (round % 10)));
            had_closed = closing.HasClosed();
            error = ErrorOf([&] {
                const Cursor cursor = statement->OpenCursor(GetParam());
                ASSERT_TRUE(cursor);
                if (GetParam() == kClientCursor) {
                    EXPECT_EQ(cursor->get_RecordCount(), 20000U);
                }
            });
        }
        EXPECT_TRUE(!had_closed || !error.empty());
        EXPECT_TRUE(error.empty() || error.find("is invalid") != std::string::npos) << error;
        EXPECT_NE(ErrorOf([&] { statement->OpenCursor(GetParam()); }), "");
    }
}

}  // namespace
}  // namespace mduckdb
