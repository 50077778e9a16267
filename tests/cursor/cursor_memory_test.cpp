// How much of a result the cursors keep in memory.
#include <fstream>

#include "cursor_fixture.h"
#include "nbx/value_pool.h"

#ifdef MDUCKDB_TEST_IS_SANITIZED
#define MEMORY_IS_WATCHED 1
#else
#define MEMORY_IS_WATCHED 0
#endif

namespace mduckdb {
namespace {

constexpr int64_t kKiB = 1024;
constexpr int64_t kMiB = 1024 * kKiB;

/** Bytes of the process in memory now. */
int64_t GetResidentBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::strtoll(line.c_str() + 6, nullptr, 10) * kKiB;
        }
    }
    return -1;
}

class CursorMemory : public testing::Test {
  protected:
    void SetUp() override {
        if (MEMORY_IS_WATCHED != 0) {
            GTEST_SKIP() << "A sanitizer's own memory hides what is measured here";
        }
    }

    OpenedDatabase database_;
};

TEST_F(CursorMemory, AServerCursorNeedsTheSameForAnyNumberOfRows) {
    const Cursor cursor = database_.Select("SELECT i, i::VARCHAR FROM range(1000000) t(i)", kServerCursor);
    for (int row = 0; row < 5000; ++row) {
        ASSERT_TRUE(cursor->NextRecord());
        cursor->get_Value(0);
        cursor->get_Value(1);
    }
    const int64_t resident = GetResidentBytes();
    const std::size_t pooled = nbx::GetPoolMappedBytes();
    while (cursor->NextRecord()) {
        cursor->get_Value(0);
        cursor->get_Value(1);
    }
    EXPECT_LE(GetResidentBytes(), resident + 8 * kMiB);
    EXPECT_LE(nbx::GetPoolMappedBytes(), pooled + static_cast<std::size_t>(256 * kKiB));
}

TEST_F(CursorMemory, AClientCursorNeedsAtMost56BytesANumberWithItsResult) {
    constexpr int64_t kCells = 4 * 500'000;
    const int64_t before = GetResidentBytes();
    const Cursor cursor = database_.Select(
        "SELECT i::INTEGER, i * 1.5::DOUBLE, i::BIGINT, (i % 1000)::SMALLINT FROM range(500000) t(i)",
        kClientCursor);
    EXPECT_EQ(cursor->get_RecordCount(), 500'000U);
    const int64_t slack = 4 * kMiB;  // what DuckDB allocates once
    EXPECT_LE(GetResidentBytes() - before, 56 * kCells + slack);
}

TEST_F(CursorMemory, AReleasedClientCursorFreesItsValues) {
    const std::size_t before = nbx::GetPoolMappedBytes();
    Cursor cursor = database_.Select("SELECT i, i, i FROM range(300000) t(i)", kClientCursor);
    // 900000 values of 24 bytes, some of them in memory that the pool already had.
    EXPECT_GE(nbx::GetPoolMappedBytes(), before + 16 * static_cast<std::size_t>(kMiB));
    cursor.reset();
    EXPECT_LE(nbx::GetPoolMappedBytes(), before + 4 * static_cast<std::size_t>(kMiB));
}

/** What DuckDB's buffer manager holds for everything that is open. */
int64_t CountManagedBytes(const OpenedDatabase& database) {
    const ResultHolder result = database.Query("SELECT sum(memory_usage_bytes)::BIGINT FROM duckdb_memory()");
    const ChunkHolder chunk(duckdb_fetch_chunk(*result));
    return static_cast<int64_t*>(duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk.get(), 0)))[0];
}

TEST(ResultMemory, ResultsOfFewRowsHoldNoBlockOfTheBufferManager) {
    const OpenedDatabase database;
    constexpr std::size_t kCursors = 200;
    const int64_t before = CountManagedBytes(database);
    std::vector<Cursor> cursors;
    std::string script;
    for (std::size_t i = 0; i < kCursors; ++i) {
        const std::string sql =
            "SELECT " + std::to_string(i) + " AS i, 'text ' || " + std::to_string(i) + " AS s;";
        cursors.push_back(database->SqlSelect(FromUtf8(sql), kServerCursor, nullptr));
        script += sql;
    }
    auto result = database->SqlQuery(FromUtf8(script), kServerCursor, nullptr);
    EXPECT_LE(CountManagedBytes(database) - before, 10 * kMiB);
    for (std::size_t i = 0; i < kCursors; ++i, result = result->NextResult()) {
        for (const Cursor& cursor : {cursors[i], Cursor(result->get_Cursor())}) {
            ASSERT_TRUE(cursor->NextRecord());
            EXPECT_EQ(static_cast<int64_t>(i), cursor->get_Value(0)->get_LLong());
            EXPECT_EQ("text " + std::to_string(i), ToUtf8(cursor->get_Value(1)->get_Text()));
            EXPECT_FALSE(cursor->NextRecord());
        }
    }
}

TEST(ResultMemory, ALargeResultStaysWithTheBufferManager) {
    const OpenedDatabase database;
    const int64_t before = CountManagedBytes(database);
    const Cursor cursor = database->SqlSelect(FromUtf8("SELECT repeat('x', 100) || i FROM range(2000) t(i)"),
                                              kServerCursor, nullptr);
    EXPECT_GE(CountManagedBytes(database) - before, 200 * kKiB);
}

}  // namespace
}  // namespace mduckdb
