// Arrow streams of cursors and query results: where they begin, and what ends them.
#include <cerrno>
#include <chrono>
#include <thread>

#include "../cursor/cursor_fixture.h"
#include "arrow_reader.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "support/peak_memory.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

using namespace std::chrono_literals;

const std::string kClosed = "EIO: The cursor of this Arrow stream was closed";
const std::string kHandedOver = CursorError("The rest of the rows was exported as an Arrow stream");

class ArrowStream : public testing::Test {
  protected:
    static constexpr uint32_t kStreaming = 3;

    Cursor Select(const std::string& sql, uint32_t kind) const {
        return kind == kStreaming ? Streaming(sql) : database_->SqlSelect(FromUtf8(sql), kind, nullptr);
    }
    Cursor Streaming(const std::string& sql) const {
        auto* const streaming = static_cast<nbx::mrsql::I_DuckDBStreaming*>(
            database_->QueryInterface(nbx::mrsql::kDuckDBStreamingInterfaceId));
        return streaming->OpenStream(FromUtf8(sql), nullptr);
    }
    Cursor Numbers(int64_t count, uint32_t kind) const {
        return Select("SELECT i FROM range(" + std::to_string(count) + ") r(i)", kind);
    }
    nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> Query(const std::string& sql) const {
        return database_->SqlQuery(FromUtf8(sql), kServerCursor, nullptr);
    }
    static void Move(I_DuckDBCursor& cursor, int64_t rows) {
        for (; rows > 0; --rows) {
            ASSERT_TRUE(cursor.NextRecord());
        }
    }

    OpenedDatabase database_;
};

TEST_F(ArrowStream, HasTheRowsAfterTheCurrentRecord) {
    for (const uint32_t kind : {kServerCursor, kClientCursor, kStreaming}) {
        for (const int64_t count : {0, 1, 2047, 2048, 2049, 10'000}) {
            for (const int64_t position : {0, 1, 2046, 2047, 2048, 2049, 4096, 9'999, 10'000}) {
                if (position > count) {
                    continue;
                }
                const Cursor cursor = Numbers(count, kind);
                Move(*cursor, position);
                ArrowReader reader(*cursor);
                EXPECT_EQ(
                    reader.RestOfNumbers(),
                    position == count ? "none" : std::to_string(position) + ".." + std::to_string(count - 1))
                    << kind << " " << count << " " << position;
                EXPECT_EQ(reader.Fail(), "end");
            }
        }
    }
}

TEST_F(ArrowStream, OfNoRowsHasASchema) {
    ArrowReader reader(*Select("SELECT 1 AS one, [2] AS two WHERE false", kServerCursor));
    EXPECT_EQ(Describe(*reader.Schema()), "+s duckdb_query_result 0\n i one 2\n +l two 2\n  i l 2\n");
    EXPECT_EQ(reader.Fail(), "end");
    EXPECT_EQ(reader.Schema()->n_children, 2);
}

TEST_F(ArrowStream, TakesTheRowsOfAServerCursorAndOfAStreamingOne) {
    for (const uint32_t kind : {kServerCursor, kStreaming}) {
        const Cursor cursor = Numbers(5000, kind);
        Move(*cursor, 3);
        ArrowReader reader(*cursor);
        EXPECT_EQ(ErrorOf([&] { cursor->NextRecord(); }), kHandedOver);
        EXPECT_EQ(ErrorOf([&] { cursor->get_Value(0); }),
                  CursorError("Data is not available. Use NextRecord() to fetch data."));
        EXPECT_EQ(ErrorOf([&] { ArrowReader second(*cursor); }), kHandedOver);
        EXPECT_EQ(reader.RestOfNumbers(), "3..4999");
        EXPECT_EQ(ErrorOf([&] { cursor->NextRecord(); }), kHandedOver);
    }
}

TEST_F(ArrowStream, LeavesAClientCursorWhereItIs) {
    const Cursor cursor = Numbers(5000, kClientCursor);
    cursor->put_CurrentRecord(3000);
    ArrowReader first(*cursor);
    cursor->put_CurrentRecord(10);
    ArrowReader second(*cursor);
    EXPECT_EQ(first.Next()->length, 4096 - 3000);
    EXPECT_EQ(second.RestOfNumbers(), "10..4999");
    EXPECT_EQ(first.RestOfNumbers(), "4096..4999");
    EXPECT_EQ(cursor->get_CurrentRecord(), 10u);
    EXPECT_EQ(cursor->get_Value(0)->get_LLong(), 9);
}

TEST_F(ArrowStream, OfAClientCursorWhoseRowsAreGoneIsRefused) {
    const Cursor cursor = database_.Open(database_.Stream("SELECT i FROM range(3) r(i)"), kClientCursor);
    ASSERT_EQ(cursor->get_RecordCount(), 3u);
    EXPECT_EQ(ErrorOf([&] { ArrowReader reader(*cursor); }),
              CursorError("DuckDB computed the rows of this client cursor while they were read and no longer "
                          "has them"));
}

TEST_F(ArrowStream, OfAQueryResultHasTheRowsOfItsCursor) {
    const auto result = Query("SELECT i FROM range(5000) r(i)");
    Move(*result->get_Cursor(), 2);
    ArrowReader reader(*result);
    EXPECT_EQ(reader.Next()->length, 2046);
    EXPECT_EQ(ErrorOf([&] { result->get_Cursor()->NextRecord(); }), kHandedOver);
    result->Close();
    EXPECT_EQ(reader.Fail(), kClosed);
    EXPECT_EQ(ErrorOf([&] { ArrowReader second(*result); }), "72501|unknown|The query result has no rows");
    const auto without_rows = Query("CREATE TABLE t (i INTEGER)");
    EXPECT_EQ(ErrorOf([&] { ArrowReader second(*without_rows); }),
              "72501|unknown|The query result has no rows");
}

TEST_F(ArrowStream, OutlivesTheCursorAndTheResultThatAreReleased) {
    auto result = Query("SELECT i FROM range(5000) r(i)");
    ArrowReader reader(*result);
    result = nullptr;
    EXPECT_EQ(reader.RestOfNumbers(), "0..4999");
}

TEST_F(ArrowStream, EndsWithAnErrorWhenItsCursorIsClosed) {
    for (const uint32_t kind : {kServerCursor, kClientCursor, kStreaming}) {
        const Cursor cursor = Numbers(50'000, kind);
        ArrowReader reader(*cursor);
        OwnedArray array = reader.Next();
        cursor->Close();
        EXPECT_EQ(reader.Fail(), kClosed);
        EXPECT_EQ(reader.Fail(), kClosed);
        EXPECT_EQ(Describe(*reader.Schema()), "+s duckdb_query_result 0\n l i 2\n");
        EXPECT_EQ(array->length, 2048);
        EXPECT_EQ(ErrorOf([&] { ArrowReader second(*cursor); }), kInvalidCursor);
    }
}

TEST_F(ArrowStream, EndsWithAnErrorWhenItsDatabaseIsClosedOrDestroyed) {
    for (const uint32_t kind : {kServerCursor, kClientCursor, kStreaming}) {
        for (const bool is_destroyed : {false, true}) {
            OpenedDatabase database;
            database_ = std::move(database);
            Cursor cursor = Select(
                "SELECT i, 'text ' || i AS t, ('v' || i % 2)::ENUM('v0', 'v1') AS e "
                "FROM range(50000) r(i)",
                kind);
            ArrowReader reader(*cursor);
            OwnedArray array = reader.Next();
            const OwnedArray unread = reader.Next();
            is_destroyed ? database_.Forget() : database_->Close();
            EXPECT_EQ(reader.Fail(), kClosed);
            cursor = nullptr;
            EXPECT_EQ(reader.Fail(), kClosed);
            OwnedSchema schema = reader.Schema();
            reader.Release();
            EXPECT_EQ(Describe(*schema, *array).substr(0, 60),
                      "{0000000000000000,'746578742030','7630' of 2,}\n{010000000000");
        }
    }
}

TEST_F(ArrowStream, CanBeMovedAndReleasedTwice) {
    const Cursor cursor = Numbers(3, kServerCursor);
    ArrowArrayStream first{};
    ArrowReader::Find(*cursor).ExportStream(first);
    ArrowArrayStream second = first;
    first.release = nullptr;
    ArrowSchema schema{};
    ArrowArray array{};
    EXPECT_EQ(first.get_schema(&first, &schema), EINVAL);
    EXPECT_EQ(first.get_next(&first, &array), EINVAL);
    EXPECT_EQ(first.get_last_error(&first), nullptr);
    EXPECT_EQ(second.get_next(&second, &array), 0);
    const auto release = second.release;
    release(&second);
    EXPECT_EQ(second.release, nullptr);
    release(&second);
    EXPECT_EQ(array.length, 3);
    array.release(&array);
}

TEST_F(ArrowStream, GivesSchemasWhoseChildrenCanBeMovedOut) {
    ArrowReader reader(*Select("SELECT {'a': 1::HUGEINT, 'b': 'x'::ENUM('x')} AS s", kServerCursor));
    OwnedSchema schema = reader.Schema();
    OwnedSchema child;
    *child = std::exchange(*schema->children[0], ArrowSchema{});
    schema.Release();
    reader.Release();
    EXPECT_EQ(
        Describe(*child),
        "+s s 2\n w:16 a 2 ARROW:extension:metadata "
        "{\"type_name\":\"hugeint\",\"vendor_name\":\"DuckDB\"} ARROW:extension:name arrow.opaque\n C b 2\n"
        "dictionary:  u  2\n");
}

TEST_F(ArrowStream, IsReadWhileAnotherThreadHasTheEngineLock) {
    for (const uint32_t kind : {kServerCursor, kClientCursor, kStreaming}) {
        const Cursor cursor = Numbers(5000, kind);
        ArrowReader reader(*cursor);
        std::string rows;
        const EngineLockScope lock;
        std::thread([&] { rows = reader.RestOfNumbers(); }).join();
        EXPECT_EQ(rows, "0..4999");
    }
}

TEST_F(ArrowStream, IsReadAndReleasedOnOtherThreadsWhileItsDatabaseCloses) {
    for (int round = 0; round < 9; ++round) {
        const uint32_t kind = 1 + static_cast<uint32_t>(round) % 3;
        OpenedDatabase database;
        database_ = std::move(database);
        Cursor cursor = Numbers(300'000, kind);
        std::string last = "rows";
        std::thread thread([reader = ArrowReader(*cursor), &last]() mutable {
            while (last == "rows") {
                last = reader.Fail();
            }
            reader.Release();
        });
        cursor = nullptr;
        std::this_thread::sleep_for(std::chrono::milliseconds(round));
        round % 2 == 0 ? database_->Close() : database_.Forget();
        thread.join();
        EXPECT_TRUE(last == kClosed || last == "end" || last.rfind("EIO: DuckDBCursor is invalid", 0) == 0)
            << last;
    }
}

TEST_F(ArrowStream, IsEndedByAnInterruptOfAStreamingCursor) {
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
    const Cursor cursor = Numbers(1'000'000'000'000, kStreaming);
    ArrowReader reader(*cursor);
    EXPECT_EQ(reader.Next()->length, 2048);
    database_->Interrupt();
    EXPECT_EQ(reader.Fail(), "ECANCELED: Interrupted");
    EXPECT_EQ(reader.Fail(), "ECANCELED: Interrupted");
    nbx::mrsql::gpIsLocalSqlCall_PTR = nullptr;
}

TEST_F(ArrowStream, ObeysTheTimeLimitOfAStreamingCursor) {
    // After its first rows there is none for hours.
    const Cursor cursor =
        Streaming("SELECT i FROM range(1000000000000) r(i) WHERE i < 3000000 OR hash(i) = 1");
    ArrowReader reader(*cursor);
    auto* const deadlines = static_cast<nbx::mrsql::I_DuckDBDeadlines*>(
        database_->QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId));
    deadlines->put_TimeLimit(50);
    std::string last = "rows";
    while (last == "rows") {
        last = reader.Fail();
    }
    EXPECT_EQ(last, "EIO: The time limit of 50 ms is over: the statement was cut");
}

TEST_F(ArrowStream, EndsWithTheErrorOfItsQueryAndNotAsIfItWereComplete) {
    // DuckDB stops the other threads of a failed query by an interrupt of its own, which a reader of the rows
    // may see before the cause.
    database_->SqlExecute(FromUtf8("SET threads = 1"), nullptr);
    ArrowReader reader(*Streaming(
        "SELECT CASE WHEN i = 3000000 THEN error('broken here') ELSE i END FROM range(4000000) r(i)"));
    std::string last = "rows";
    while (last == "rows") {
        last = reader.Fail();
    }
    EXPECT_EQ(last, "EIO: broken here");
    ArrowReader fetched(*database_.Open(
        database_.Stream(
            "SELECT CASE WHEN i = 3000000 THEN error('broken there') ELSE i END FROM range(4000000) r(i)"),
        kServerCursor));
    for (last = "rows"; last == "rows";) {
        last = fetched.Fail();
    }
    EXPECT_NE(last.find("broken there"), std::string::npos) << last;
}

TEST_F(ArrowStream, OfMoreThanTheMemoryLimitStaysWithinIt) {
#ifdef MDUCKDB_TEST_IS_SANITIZED
    GTEST_SKIP() << "A sanitizer's own memory hides what is measured here";
#endif
    MemoryBound bound;
    bound.rows = bound.is_full ? bound.rows : 6'000'000;
    bound.limit_mb = bound.is_full ? bound.limit_mb : 20;
    bound.peak_bytes = (bound.limit_mb + 120) * 1'000'000;
    const TempFolder folder;
    database_->SqlExecute(FromUtf8("SET temp_directory = '" + (folder / "spill") +
                                   "'; SET threads = 2; "
                                   "SET memory_limit = '" +
                                   std::to_string(bound.limit_mb) + "MB'"),
                          nullptr);
    const PeakMemory peak;
    ArrowReader reader(*Select(
        "SELECT i, i * 3 AS t, i::DOUBLE / 2 AS d FROM range(" + std::to_string(bound.rows) + ") r(i)",
        kServerCursor));
    EXPECT_EQ(reader.RestOfNumbers(), "0.." + std::to_string(bound.rows - 1));
    EXPECT_LE(peak.get_Bytes(), bound.peak_bytes);
}

}  // namespace
}  // namespace mduckdb
