#include <gtest/gtest.h>

#include "duckdb_internals/cell_reader.h"
#include "support/harmful_time.h"
#include "support/value_description.h"
#include "values/variant.h"

/* Cells that contain a value that DuckDB must not convert to text. */
namespace mduckdb {
namespace {

/** The only row of the query. */
std::vector<std::string> ReadRow(TestEngine& engine, const std::string& sql) {
    ResultHolder result = engine.Query(sql);
    const ChunkHolder chunk(duckdb_fetch_chunk(*result));
    CellReader reader(ConvertVariant);
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

/** The only cell of the query, described after `a~` in its text has become invalid UTF-8, as in a damaged
   file. `path` leads to the vector of the text: numbers of fields, negative for the elements of a list. */
std::string ReadDamaged(TestEngine& engine, const std::string& sql, std::initializer_list<int> path) {
    ResultHolder result = engine.Query(sql);
    const ChunkHolder chunk(duckdb_fetch_chunk(*result));
    duckdb_vector vector = duckdb_data_chunk_get_vector(chunk.get(), 0);
    for (const int step : path) {
        vector = step < 0 ? duckdb_list_vector_get_child(vector)
                          : duckdb_struct_vector_get_child(vector, static_cast<idx_t>(step));
    }
    auto* const text = static_cast<duckdb_string_t*>(duckdb_vector_get_data(vector));
    EXPECT_LE(duckdb_string_t_length(*text), 12U) << sql;
    std::size_t damaged = 0;
    for (char& byte : text->value.inlined.inlined) {
        if (byte == '~') {
            byte = '\xFF';
            ++damaged;
        }
    }
    EXPECT_EQ(damaged, 1U) << sql;
    CellReader reader(ConvertVariant);
    reader.Bind(chunk.get());
    return Describe(reader.Read(0, 0).get());
}

TEST(CellGuard, ACellWithATextThatIsNotValidUtf8IsNotNull) {
    TestEngine engine;
    EXPECT_EQ(ReadDamaged(engine, "SELECT ['a~']", {-1}), "String [a\uFFFD]");
    EXPECT_EQ(ReadDamaged(engine, "SELECT 'a~'::VARIANT", {3}), "String a\uFFFD");
    // Types that DuckDB converts value by value, and it creates no value of such a text.
    EXPECT_EQ(ReadDamaged(engine, "SELECT {'a': 'a~', 'b': TIME '12:00'}", {0}), "String ");
    EXPECT_EQ(ReadDamaged(engine, "SELECT [row('a~', 1.5)]", {-1, 0}), "String ");
    EXPECT_EQ(ReadDamaged(engine, "SELECT MAP {'a~': 1.5}", {-1, 0}), "String ");
    const std::string variant = ReadDamaged(engine, "SELECT ['a~']::VARIANT", {3});
    EXPECT_NE(variant.find(R"("variant_type":"ARRAY","value":"")"), std::string::npos) << variant;
    // The name of a field.
    EXPECT_EQ(ReadDamaged(engine, "SELECT {'a~': 1}::VARIANT", {0, -1}), "String ");
}

}  // namespace
}  // namespace mduckdb
