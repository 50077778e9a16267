#include "duckdb_internals/rows_changed.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/test_engine.h"

namespace mduckdb {
namespace {

/** As DuckDB tells it for the kinds of result for which it does. */
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

}  // namespace
}  // namespace mduckdb
