#include <gtest/gtest.h>

#include "duckdb_internals/cell_reader.h"
#include "support/harmful_time.h"
#include "support/value_description.h"

/* Cells that contain a value that DuckDB must not convert to text. */
namespace mduckdb {
namespace {

/** The only row of the query. */
std::vector<std::string> ReadRow(TestEngine& engine, const std::string& sql) {
    ResultHolder result = engine.Query(sql);
    const ChunkHolder chunk(duckdb_fetch_chunk(*result));
    CellReader reader([](duckdb_value) { return MakeNullValue(); });
    reader.Bind(chunk.get());
    std::vector<std::string> cells;
    for (idx_t column = 0; column < duckdb_data_chunk_get_column_count(chunk.get()); ++column) {
        cells.push_back(Describe(reader.Read(column, 0).get()));
    }
    return cells;
}

TEST(CellGuard, AHarmfulValueInsideANestedCellMakesItTheEmptyText) {
    TestEngine engine;
    StoreHarmfulTime(engine);
    // Each in a chunk of its own: after a failed cast of a whole column, every row is looked at.
    for (const char* row : {"0", "1"}) {
        EXPECT_EQ(ReadRow(engine,
                          "SELECT [t], {'a': t}, MAP {1: t}, row(t), row(1, row('a', t)), [row(t)], "
                          "{'a': [row(1, t)]} FROM times WHERE rowid = " +
                              std::string(row)),
                  std::vector<std::string>(7, "String "))
            << row;
    }
}

TEST(CellGuard, ANestedCellWithoutAHarmfulValueIsDuckDBsText) {
    TestEngine engine;
    const std::string row = "row(1, TIME '12:00', [row('a')])";
    EXPECT_EQ(ReadRow(engine, "SELECT " + row + ", [" + row + "]"),
              ReadRow(engine, "SELECT " + row + "::VARCHAR, [" + row + "]::VARCHAR"));
}

}  // namespace
}  // namespace mduckdb
