// Compares both kinds of cursor with a plain model of the rows in memory.
#include <random>
#include <vector>

#include "cursor_fixture.h"

namespace mduckdb {
namespace {

/** The query of a table and its expected cells: column c of row r is NULL where r + c divides by 7, otherwise
    a number in even columns and a text in odd ones. */
struct Model {
    uint32_t rows;
    uint32_t columns;

    std::string get_Sql() const {
        std::string sql = "SELECT ";
        for (uint32_t c = 0; c < columns; ++c) {
            const std::string column = std::to_string(c);
            const std::string number = "(i * 31 + " + column + ")";
            const std::string content = c % 2 == 0 ? number : "'t' || " + number;
            sql += (c == 0 ? "" : ", ") + std::string("CASE WHEN (i + ") + column +
                   ") % 7 = 0 THEN NULL ELSE " + content + " END AS c" + column;
        }
        return sql + " FROM range(" + std::to_string(rows) + ") t(i) ORDER BY i";
    }
    std::string get_Cell(uint32_t row, uint32_t column) const {
        if ((row + column) % 7 == 0) {
            return "Boolean NULL?";
        }
        const std::string number = std::to_string(uint64_t{row} * 31 + column);
        return (column % 2 == 0 ? "LLong " : "String t") + number;
    }
};

void ExpectRow(I_DuckDBCursor& cursor, const Model& model, uint32_t row) {
    for (uint32_t column = 0; column < model.columns; ++column) {
        ASSERT_EQ(DescribeField(cursor, column), model.get_Cell(row, column)) << row << ", " << column;
    }
}

void WalkForward(I_DuckDBCursor& cursor, const Model& model) {
    for (uint32_t row = 0; row < model.rows; ++row) {
        ASSERT_TRUE(cursor.NextRecord());
        ExpectRow(cursor, model, row);
    }
    EXPECT_FALSE(cursor.NextRecord());
}

void WalkBackward(I_DuckDBCursor& cursor, const Model& model) {
    EXPECT_EQ(cursor.LastRecord(), model.rows > 0);
    for (uint32_t row = model.rows; row > 0; --row) {
        ASSERT_EQ(cursor.get_CurrentRecord(), row);
        ExpectRow(cursor, model, row - 1);
        ASSERT_EQ(cursor.PrevRecord(), row > 1);
    }
}

/** Random moves; `position` is that of the model, 0 for none. */
void WalkAtRandom(I_DuckDBCursor& cursor, const Model& model, uint32_t moves) {
    std::mt19937 random(model.rows * 131 + model.columns);
    uint32_t position = cursor.get_CurrentRecord();
    for (uint32_t move = 0; move < moves; ++move) {
        const auto target = static_cast<uint32_t>(random() % (model.rows + 2));
        switch (random() % 5) {
            case 0:
                ASSERT_EQ(cursor.FirstRecord(), model.rows > 0);
                position = model.rows > 0 ? 1 : position;
                break;
            case 1:
                ASSERT_EQ(cursor.LastRecord(), model.rows > 0);
                position = model.rows;
                break;
            case 2:
                ASSERT_EQ(cursor.NextRecord(), position < model.rows);
                position += position < model.rows ? 1 : 0;
                break;
            case 3:
                ASSERT_EQ(cursor.PrevRecord(), position >= 2);
                position -= position >= 2 ? 1 : 0;
                break;
            default:
                ASSERT_EQ(cursor.put_CurrentRecord(target), target >= 1 && target <= model.rows);
                position = target >= 1 && target <= model.rows ? target : position;
        }
        ASSERT_EQ(cursor.get_CurrentRecord(), position);
        if (position > 0) {
            ExpectRow(cursor, model, position - 1);
        }
    }
}

class CursorsAndModel : public testing::TestWithParam<Model> {
  protected:
    OpenedDatabase database_;
};

INSTANTIATE_TEST_SUITE_P(Sizes, CursorsAndModel,
                         testing::Values(Model{0, 1}, Model{0, 30}, Model{1, 1}, Model{1, 30}, Model{2047, 3},
                                         Model{2048, 3}, Model{2049, 3}, Model{4096, 2}, Model{4097, 10},
                                         Model{2049, 11}, Model{2049, 13}, Model{100, 30}),
                         [](const auto& model) {
                             return std::to_string(model.param.rows) + "_rows_" +
                                    std::to_string(model.param.columns) + "_columns";
                         });

TEST_P(CursorsAndModel, AServerCursorReturnsTheRowsForward) {
    const Cursor cursor = database_.Select(GetParam().get_Sql(), kServerCursor);
    WalkForward(*cursor, GetParam());
}

TEST_P(CursorsAndModel, AClientCursorReturnsTheRowsInEveryDirection) {
    const Cursor cursor = database_.Select(GetParam().get_Sql(), kClientCursor);
    EXPECT_EQ(cursor->get_RecordCount(), GetParam().rows);
    WalkForward(*cursor, GetParam());
    WalkBackward(*cursor, GetParam());
    WalkAtRandom(*cursor, GetParam(), 2000);
}

TEST_P(CursorsAndModel, AStreamReturnsTheSameRows) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        const Cursor cursor = database_.Open(database_.Stream(GetParam().get_Sql()), location);
        WalkForward(*cursor, GetParam());
        EXPECT_EQ(FetchErrorOf(*cursor), "");
    }
}

TEST(CursorsOverAMillionRows, ReturnEveryRow) {
    const OpenedDatabase database;
    constexpr int64_t kRows = 1'000'000;
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        const Cursor cursor = database.Select("SELECT i FROM range(1000000) t(i)", location);
        int64_t row = 0;
        while (cursor->NextRecord()) {
            ASSERT_EQ(cursor->get_Value(0)->get_LLong(), row);
            ++row;
        }
        EXPECT_EQ(row, kRows);
    }
}

TEST(CursorsWithoutColumns, AreCreatedAndAtTheirEndAtOnce) {
    const OpenedDatabase database;
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        const Cursor cursor = database.Open(database.Query("CREATE OR REPLACE TABLE t(i INTEGER)"), location);
        EXPECT_FALSE(cursor->NextRecord());
        EXPECT_EQ(ErrorOf([&] { cursor->get_Value(99); }), CursorError("inColumnIndex is out of bounds"));
    }
}

}  // namespace
}  // namespace mduckdb
