// Every order in which cursors, results and their database can be destroyed. AddressSanitizer finds the
// errors that these tests are for.
#include <algorithm>
#include <array>

#include "cursor_fixture.h"

namespace mduckdb {
namespace {

enum class Step { close_cursor, release_cursor, close_database, release_database };

void Do(Step step, Cursor& cursor, OpenedDatabase& database) {
    switch (step) {
        case Step::close_cursor:
            if (cursor) {
                cursor->Close();
            }
            break;
        case Step::release_cursor:
            cursor.reset();
            break;
        case Step::close_database:
            database->Close();
            break;
        case Step::release_database:
            database.Forget();
            break;
    }
}

/** All orders of the steps in which no step uses a database after its release. */
std::vector<std::vector<Step>> GetOrders() {
    std::array<Step, 4> steps = {Step::close_cursor, Step::release_cursor, Step::close_database,
                                 Step::release_database};
    std::vector<std::vector<Step>> orders;
    do {
        const auto close = std::find(steps.begin(), steps.end(), Step::close_database);
        const auto release = std::find(steps.begin(), steps.end(), Step::release_database);
        if (close < release) {
            orders.emplace_back(steps.begin(), steps.end());
        }
    } while (std::next_permutation(steps.begin(), steps.end()));
    return orders;
}

TEST(CursorLifetime, CursorsAndDatabaseDieInAnyOrder) {
    const std::string sql = "SELECT i, repeat('text', 20), [i] FROM range(5000) t(i)";
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        for (const bool on_a_row : {false, true}) {
            for (const std::vector<Step>& order : GetOrders()) {
                OpenedDatabase database;
                Cursor cursor = database.Select(sql, location);
                if (on_a_row) {
                    cursor->NextRecord();
                }
                for (const Step step : order) {
                    Do(step, cursor, database);
                }
            }
        }
    }
}

TEST(CursorLifetime, ACursorOutlivesADatabaseThatWasReleasedWithoutClose) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        OpenedDatabase database;
        const Cursor cursor = database.Select("SELECT 'text'", location);
        cursor->NextRecord();
        database.Forget();
        EXPECT_EQ(ErrorOf([&] { cursor->get_Value(0); }), kInvalidCursor);
        EXPECT_FALSE(cursor->get_Database());
    }
}

TEST(CursorLifetime, ADatabaseClosesCursorsThatWereClosedBeforeAndAreDeadByThen) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        OpenedDatabase database;
        Cursor closed = database.Select("SELECT 1", location);
        const Cursor closed_and_alive = database.Select("SELECT 2", location);
        const Cursor open = database.Select("SELECT 3", location);
        closed->Close();
        closed_and_alive->Close();
        closed.reset();
        database->Close();
        EXPECT_EQ(ErrorOf([&] { open->NextRecord(); }), kInvalidCursor);
    }
}

TEST(CursorLifetime, ADatabaseCanBeOpenedAgainWhileOldCursorsLive) {
    OpenedDatabase database;
    const Cursor old = database.Select("SELECT 1", kServerCursor);
    database->Close();
    database->Open();
    const Cursor fresh = database.Select("SELECT 2", kServerCursor);
    EXPECT_EQ(ErrorOf([&] { old->NextRecord(); }), kInvalidCursor);
    EXPECT_TRUE(fresh->NextRecord());
    EXPECT_EQ(DescribeField(*fresh, 0), "Long 2");
}

TEST(CursorLifetime, AStreamMayBeAbandonedAnywhere) {
    for (const int rows : {0, 1, 3000}) {
        OpenedDatabase database;
        Cursor cursor =
            database.Open(database.Stream("SELECT i, i::VARCHAR FROM range(2000000) t(i)"), kServerCursor);
        for (int row = 0; row < rows; ++row) {
            ASSERT_TRUE(cursor->NextRecord());
        }
        cursor->Close();
        cursor.reset();
        EXPECT_EQ(database.Select("SELECT 1", kClientCursor)->get_RecordCount(), 1U);
    }
}

TEST(CursorLifetime, AnEmptyResultBecomesACursorWithoutRows) {
    OpenedDatabase database;
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        const Cursor cursor = database.Open(ResultHolder(duckdb_result{}), location);
        EXPECT_EQ(cursor->get_ColumnCount(), 0U);
        EXPECT_FALSE(cursor->NextRecord());
    }
    database->Close();
}

TEST(CursorLifetime, HundredsOfCursorsOfOneDatabaseDieInMixedOrder) {
    OpenedDatabase database;
    std::vector<Cursor> cursors;
    for (uint32_t i = 0; i < 300; ++i) {
        cursors.push_back(database.Select("SELECT " + std::to_string(i), i % 2 + 1));
    }
    for (std::size_t i = 0; i < cursors.size(); i += 3) {
        cursors[i].reset();
    }
    for (std::size_t i = 1; i < cursors.size(); i += 3) {
        cursors[i]->Close();
    }
    database->Close();
    for (std::size_t i = 2; i < cursors.size(); i += 3) {
        EXPECT_EQ(ErrorOf([&] { cursors[i]->NextRecord(); }), kInvalidCursor);
    }
}

/** The host's data on an object must be notified of its destruction. */
TEST(CursorLifetime, ACursorCallsTheFinaliserAndClearsTheBackReference) {
    static int finalised = 0;
    finalised = 0;
    const OpenedDatabase database;
    Cursor cursor = database.Select("SELECT 1", kServerCursor);
    auto* plugin = dynamic_cast<nbx::I_ForeignPlugin*>(cursor.get());
    ASSERT_NE(plugin, nullptr);
    int word = 0;
    void* reference = &word;
    plugin->put_BackRef(&reference);
    plugin->put_Finalize([](nbx::I_ForeignPlugin*) { ++finalised; });
    cursor.reset();
    EXPECT_EQ(finalised, 1);
    EXPECT_EQ(reference, nullptr);
}

TEST(CursorLifetime, ACursorRemovedFromItsDatabaseOutlivesIt) {
    OpenedDatabase database;
    const Cursor cursor = database->SqlSelect(FromUtf8("SELECT 1"), kServerCursor, nullptr);
    database->RemoveCursor(cursor.get());
    database.Forget();
    EXPECT_THROW(cursor->NextRecord(), nbx::mrsql::xDuckDBError);
    EXPECT_EQ(cursor->get_Database(), nullptr);
}

}  // namespace
}  // namespace mduckdb
