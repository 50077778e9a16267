#include "duckdb_internals/results.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "support/test_engine.h"

namespace mduckdb {
namespace {

bool IsValid(const uint64_t* validity, idx_t row) {
    return validity == nullptr || (validity[row / 64] >> (row % 64) & 1) != 0;
}

std::string_view TextAt(const void* data, idx_t row) {
    auto* text = const_cast<duckdb_string_t*>(static_cast<const duckdb_string_t*>(data)) + row;
    return {duckdb_string_t_data(text), duckdb_string_t_length(*text)};
}

/** Compares the loaded chunk's first two columns, BIGINT and VARCHAR, with DuckDB's own chunk. */
void ExpectSameCells(const ResultChunks& chunks, duckdb_data_chunk expected) {
    const duckdb_vector numbers = duckdb_data_chunk_get_vector(expected, 0);
    const duckdb_vector texts = duckdb_data_chunk_get_vector(expected, 1);
    for (idx_t row = 0; row < duckdb_data_chunk_get_size(expected); ++row) {
        ASSERT_EQ(IsValid(duckdb_vector_get_validity(numbers), row), IsValid(chunks.get_Validity(0), row));
        ASSERT_EQ(IsValid(duckdb_vector_get_validity(texts), row), IsValid(chunks.get_Validity(1), row));
        if (IsValid(chunks.get_Validity(0), row)) {
            ASSERT_EQ(static_cast<const int64_t*>(duckdb_vector_get_data(numbers))[row],
                      static_cast<const int64_t*>(chunks.get_Data(0))[row]);
        }
        if (IsValid(chunks.get_Validity(1), row)) {
            ASSERT_EQ(TextAt(duckdb_vector_get_data(texts), row), TextAt(chunks.get_Data(1), row));
        }
    }
}

class ResultChunksTest : public testing::Test {
  protected:
    TestEngine engine_;
    /** Short texts, long ones and NULLs, over many chunks. */
    ResultHolder rows_ = engine_.Query(
        "SELECT CASE WHEN i % 5 <> 0 THEN i END AS n, CASE WHEN i % 7 <> 0 THEN repeat('text ' || i, "
        "(i % 4)::INTEGER) END AS t, [i, i + 1] AS l FROM range(50000) r(i)");
};

TEST_F(ResultChunksTest, ReportsTheRowsOfEachChunkAsDuckDBDoes) {
    const ResultChunks chunks(*rows_);
    ASSERT_EQ(chunks.get_Count(), duckdb_result_chunk_count(*rows_));
    idx_t first_row = 0;
    for (idx_t i = 0; i < chunks.get_Count(); ++i) {
        EXPECT_EQ(chunks.get_FirstRow(i), first_row);
        const ChunkHolder chunk(duckdb_result_get_chunk(*rows_, i));
        first_row += duckdb_data_chunk_get_size(chunk.get());
        EXPECT_EQ(chunks.FindRow(chunks.get_FirstRow(i)), i);
        EXPECT_EQ(chunks.FindRow(first_row - 1), i);
    }
    EXPECT_EQ(chunks.get_FirstRow(chunks.get_Count()), duckdb_row_count(rows_.get()));
}

TEST_F(ResultChunksTest, ReadsTheCellsOfAnyChunkInAnyOrder) {
    ResultChunks chunks(*rows_);
    const idx_t count = chunks.get_Count();
    ASSERT_GT(count, 10U);
    for (idx_t step = 0; step < 2 * count; ++step) {
        const idx_t index = step * 7 % count;
        chunks.Load(index);
        const ChunkHolder expected(duckdb_result_get_chunk(*rows_, index));
        ExpectSameCells(chunks, expected.get());
    }
}

TEST_F(ResultChunksTest, ReadsWhatDuckDBHasMovedToDisk) {
    engine_.Query("SET memory_limit = '40MB'");
    engine_.Query("SET threads = 1");
    const ResultHolder rows = engine_.Query(
        "SELECT i AS n, 'a text that is longer than twelve bytes ' || i AS t FROM range(1500000) r(i)");
    ResultChunks chunks(*rows);
    for (idx_t index = 0; index < chunks.get_Count(); index += 50) {
        chunks.Load(index);
        const auto row = static_cast<int64_t>(chunks.get_FirstRow(index));
        ASSERT_EQ(static_cast<const int64_t*>(chunks.get_Data(0))[0], row);
        ASSERT_EQ(TextAt(chunks.get_Data(1), 0),
                  "a text that is longer than twelve bytes " + std::to_string(row));
    }
}

TEST_F(ResultChunksTest, CastColumnsAsDuckDBDoesAndReturnNullWhereItCannot) {
    const ResultHolder rows = engine_.Query(
        "SELECT i::DECIMAL(18,3) AS d, [i] AS l, i, CASE WHEN i = 3000 THEN 'x' ELSE i::VARCHAR END AS t "
        "FROM range(5000) r(i)");
    ResultChunks chunks(*rows, ColumnCasts(engine_.get(), {DUCKDB_TYPE_DOUBLE, DUCKDB_TYPE_VARCHAR,
                                                           DUCKDB_TYPE_INVALID, DUCKDB_TYPE_INTEGER}));
    for (const idx_t row : {idx_t{4999}, idx_t{3000}, idx_t{0}}) {
        const idx_t chunk = chunks.FindRow(row);
        chunks.Load(chunk);
        const idx_t at = row - chunks.get_FirstRow(chunk);
        EXPECT_EQ(static_cast<const double*>(chunks.get_Data(0))[at], static_cast<double>(row));
        EXPECT_EQ(TextAt(chunks.get_Data(1), at), "[" + std::to_string(row) + "]");
        EXPECT_EQ(static_cast<const int64_t*>(chunks.get_Data(2))[at], static_cast<int64_t>(row));
        const bool is_valid = duckdb_validity_row_is_valid(const_cast<uint64_t*>(chunks.get_Validity(3)), at);
        EXPECT_EQ(is_valid, row != 3000);
        if (is_valid) {
            EXPECT_EQ(static_cast<const int32_t*>(chunks.get_Data(3))[at], static_cast<int32_t>(row));
        }
    }
}

TEST_F(ResultChunksTest, AreEmptyForAResultWithoutRows) {
    const ResultHolder empty = engine_.Query("SELECT 1 AS n, 'x' AS t WHERE false");
    const ResultChunks chunks(*empty);
    EXPECT_EQ(chunks.get_Count(), 0U);
    EXPECT_EQ(chunks.get_FirstRow(0), 0U);
}

TEST_F(ResultChunksTest, AreRefusedForAResultWithoutChunks) {
    ResultHolder failed;
    EXPECT_EQ(duckdb_query(engine_.get(), "SELECT nothing FROM nowhere", failed.Receive()), DuckDBError);
    EXPECT_THROW(ResultChunks{*failed}, std::runtime_error);
    EXPECT_THROW(ResultChunks{duckdb_result{}}, std::runtime_error);
}

/** The number that DuckDB reports for the kinds of result for which it does. */
int64_t GetStock(duckdb_result* result) {
    return duckdb_result_return_type(*result) == DUCKDB_RESULT_TYPE_CHANGED_ROWS
               ? static_cast<int64_t>(duckdb_rows_changed(result))
               : 0;
}

TEST(RowsChangedTest, AreThoseThatDuckDBCountsForEveryKindOfStatement) {
    TestEngine engine;
    int64_t total = 0;
    for (const char* sql :
         {"CREATE TABLE t AS SELECT range AS n FROM range(3000)",
          "INSERT INTO t SELECT range FROM range(5000)", "INSERT INTO t SELECT 1 WHERE false",
          "UPDATE t SET n = n + 1 WHERE n < 7", "DELETE FROM t WHERE n > 2990",
          "INSERT INTO t VALUES (1), (2) RETURNING n", "SELECT 5::BIGINT", "SELECT n FROM t WHERE false",
          "CREATE VIEW v AS SELECT 1", "CREATE TABLE IF NOT EXISTS t AS SELECT 1", "COPY t TO '/dev/null'",
          "MERGE INTO t USING (SELECT 5 AS k) s ON t.n = s.k WHEN MATCHED THEN DELETE", "SET threads = 2",
          "BEGIN", "COMMIT"}) {
        ResultHolder result = engine.Query(sql);
        const idx_t rows = duckdb_row_count(result.get());
        const int64_t expected = GetStock(result.get());
        EXPECT_EQ(GetRowsChanged(result.get()), expected) << sql;
        total += expected;
        // Its rows can still be fetched.
        const ChunkHolder chunk(duckdb_fetch_chunk(*result));
        EXPECT_EQ(chunk ? duckdb_data_chunk_get_size(chunk.get()) : 0, std::min<idx_t>(rows, 2048)) << sql;
    }
    EXPECT_GT(total, 5'000);
}

TEST(RowsChangedTest, AreZeroForAFailedStatement) {
    const TestEngine engine;
    ResultHolder failed;
    EXPECT_EQ(duckdb_query(engine.get(), "INSERT INTO nowhere VALUES (1)", failed.Receive()), DuckDBError);
    EXPECT_EQ(GetRowsChanged(failed.get()), 0);
}

TEST(ColumnNameTest, IsWholeAlsoBehindANul) {
    const TestEngine engine;
    ResultHolder result;
    ASSERT_EQ(
        duckdb_query(engine.get(), "PIVOT (SELECT 'a' || chr(0) || 'b' AS k, 1 AS v) ON k USING sum(v); ",
                     result.Receive()),
        DuckDBSuccess)
        << duckdb_result_error(result.get());
    EXPECT_EQ(GetColumnName(*result, 0), std::string_view("a\0b", 3));
    EXPECT_STREQ(duckdb_column_name(result.get(), 0), "a");
    EXPECT_EQ(GetColumnName(*result, 1), std::nullopt);
    EXPECT_EQ(GetColumnName(duckdb_result{}, 0), std::nullopt);
}

}  // namespace
}  // namespace mduckdb
