#include "../arrow/arrow_reader.h"
#include "../cursor/cursor_fixture.h"
#include "each_allocation.h"
#include "nbx/mrsql/duckdb_extension.h"
#include "support/sample_values.h"
#include "support/test_host.h"

namespace mduckdb::test {
namespace {

using nbx::mrsql::I_DuckDBQueryResult;
using nbx::mrsql::kServerCursor;

/** Rows of several chunks, with a text in each that does not fit into an object. */
constexpr const char* kManyRows =
    "SELECT range AS number, 'a text that is not short, ' || range AS text, "
    "[range, 1] AS \"a list with a name that is not short\" FROM range(5000)";

/** A row for each kind inside a VARIANT; NULL among them. */
std::string SelectVariants() {
    std::string sql = "SELECT NULL::VARIANT AS variant";
    for (const std::string& expression : get_VariantExpressions()) {
        sql += " UNION ALL SELECT " + expression;
    }
    return sql;
}

/** A row of values of every type, and one of NULLs. */
std::string SelectEveryType() {
    std::string list;
    for (const std::string& expression : get_SampleExpressions()) {
        list += (list.empty() ? "" : ", ") + expression;
    }
    return "SELECT * FROM (SELECT " + list + ") UNION ALL SELECT * FROM (SELECT " + list + ") WHERE false";
}

std::string DescribeColumns(const I_DuckDBCursor& cursor) {
    std::string text;
    for (uint32_t i = 0; i < cursor.get_ColumnCount(); ++i) {
        text += ToUtf8(cursor.get_ColumnName(i)) + " " + ToUtf8(cursor.get_ColumnTypeName(i)) + " " +
                std::to_string(cursor.get_ColumnType(i)) + "\n";
    }
    return text;
}

/** Columns and cells, with as many rows as there are up to the limit. */
std::string ReadWhole(I_DuckDBCursor& cursor, uint32_t limit) {
    std::string text = Quietly([&] { return DescribeColumns(cursor); });
    for (uint32_t row = 0; row < limit && cursor.NextRecord(); ++row) {
        for (uint32_t i = 0; i < cursor.get_ColumnCount(); ++i) {
            const auto value = cursor.get_Value(i);
            Quietly([&] { text += Describe(value.get()) + "\n"; });
        }
    }
    return text;
}

/** The same with all allocations of all calls failing one by one, and each call repeated until it succeeds.
 */
std::string ReadPersistently(I_DuckDBCursor& cursor) {
    std::string text = DescribeColumns(cursor);
    while (Persist([&] { return cursor.NextRecord(); })) {
        for (uint32_t i = 0; i < cursor.get_ColumnCount(); ++i) {
            const auto value = Persist([&] { return cursor.get_Value(i); });
            // The host reads it too.
            const nbx::String content = Persist([&] { return value->get_Text(); });
            EXPECT_EQ(ToUtf8(content), ToUtf8(value->get_Text()));
            text += Describe(value.get()) + "\n";
        }
    }
    return text;
}

/** The rows as an Arrow stream, with each call repeated until there is memory for it. */
std::string ExportPersistently(I_DuckDBCursor& cursor) {
    ArrowArrayStream stream{};
    Persist([&] {
        ArrowReader::Find(cursor).ExportStream(stream);
        return true;
    });
    const auto call = [&stream](int code) {
        if (code != 0) {
            EXPECT_STREQ(stream.get_last_error(&stream), "Out of memory");
            EXPECT_EQ(code, ENOMEM);
            throw std::bad_alloc();
        }
        return true;
    };
    OwnedSchema schema;
    Persist([&] { return call(stream.get_schema(&stream, schema.get())); });
    std::string text = Describe(*schema);
    for (;;) {
        OwnedArray array;
        Persist([&] { return call(stream.get_next(&stream, array.get())); });
        if (!array) {
            break;
        }
        text += Describe(*schema, *array);
    }
    stream.release(&stream);
    return text;
}

std::string ExportWhole(I_DuckDBCursor& cursor) {
    ArrowReader reader(cursor);
    OwnedSchema schema = reader.Schema();
    int64_t count = 0;
    return Describe(*schema) + reader.Rest(count);
}

class ReadingOutOfMemory : public testing::Test {
  protected:
    Cursor Select(const std::string& sql, uint32_t location) const {
        return database_->SqlSelect(FromUtf8(sql), location, nullptr);
    }
    std::string Look() const { return std::to_string(database_->get_RefsCount()); }
    void ExpectWholeSelection(const std::string& text, uint32_t location, uint64_t samples) {
        const nbx::String sql = FromUtf8(text);
        Operation operation;
        operation.act = [&] { return ReadWhole(*database_->SqlSelect(sql, location, nullptr), 100); };
        operation.look = [this] { return Look(); };
        operation.samples = samples;
        EXPECT_GT(FailEach(operation), 0U);
    }

    TestHost host_;
    OpenedDatabase database_;
};

TEST_F(ReadingOutOfMemory, EveryCallOfAServerCursorIsAnErrorOrExactAndCanBeRepeated) {
    for (const std::string& sql : {SelectEveryType(), SelectVariants(), std::string(kManyRows)}) {
        EXPECT_EQ(ReadPersistently(*Select(sql, kServerCursor)), ReadWhole(*Select(sql, kServerCursor), -1U))
            << sql;
    }
}

TEST_F(ReadingOutOfMemory, EveryCallOfAnArrowStreamIsAnErrorOrExactAndCanBeRepeated) {
    for (const std::string& sql : {SelectEveryType(), SelectVariants(), std::string(kManyRows)}) {
        for (const uint32_t location : {kServerCursor, kClientCursor}) {
            const Cursor cursor = Select(sql, location);
            const Cursor other = Select(sql, location);
            cursor->NextRecord();
            other->NextRecord();
            EXPECT_EQ(ExportPersistently(*cursor), ExportWhole(*other)) << sql;
        }
    }
}

TEST_F(ReadingOutOfMemory, AClientCursorIsWholeOrThereIsNone) {
    ExpectWholeSelection(SelectVariants(), kClientCursor, 40);
    ExpectWholeSelection(SelectEveryType(), kClientCursor, 12);
    ExpectWholeSelection(kManyRows, kClientCursor, 12);
}

TEST_F(ReadingOutOfMemory, AServerCursorIsWholeOrThereIsNone) {
    ExpectWholeSelection("SELECT 1 AS \"a column with a name that is not short\", {'a': 'text'}",
                         kServerCursor, 300);
    ExpectWholeSelection(SelectEveryType(), kServerCursor, 20);
}

TEST_F(ReadingOutOfMemory, RowsOfAClientCursorAreAllThereOrNone) {
    const Cursor cursor = Select("SELECT range, 'text' FROM range(20)", kClientCursor);
    const auto rows = Persist([&] { return host_->get_ClientCursorRows(cursor); });
    ASSERT_EQ(rows->get_Count(), 20U);
    for (std::size_t i = 0; i < 20; ++i) {
        ASSERT_EQ(rows->get_Item(i)->get_Count(), 2U);
        EXPECT_EQ(rows->get_Item(i)->get_Item(0)->get_LLong(), static_cast<int64_t>(i));
    }
    EXPECT_EQ(host_->get_ClientCursorRows(cursor), rows);
}

/** Outcomes and rows of a whole chain. */
std::string WalkPersistently(nbx::smart_ptr<I_DuckDBQueryResult> result) {
    std::string text;
    while (result) {
        text += std::to_string(result->get_Flags()) + " " + std::to_string(result->get_RowsChanged()) + "\n";
        if (const auto cursor = Persist([&] { return result->get_Cursor(); })) {
            text += ReadPersistently(*cursor);
        }
        result = Persist([&] { return result->NextResult(); });
    }
    return text;
}

std::string Walk(nbx::smart_ptr<I_DuckDBQueryResult> result) {
    std::string text;
    while (result) {
        Quietly([&] {
            text +=
                std::to_string(result->get_Flags()) + " " + std::to_string(result->get_RowsChanged()) + "\n";
        });
        if (const auto cursor = result->get_Cursor()) {
            text += ReadWhole(*cursor, -1U);
        }
        result = result->NextResult();
    }
    return text;
}

constexpr const char* kScript =
    "SELECT 1 AS one; CREATE OR REPLACE TABLE t AS FROM range(2); INSERT INTO t VALUES (7); "
    "SELECT range, 'a text that is not short' FROM t";

TEST_F(ReadingOutOfMemory, EveryCallOfAQueryResultIsAnErrorOrExactAndCanBeRepeated) {
    for (const uint32_t location : {kClientCursor, kServerCursor}) {
        const auto query = [&] { return database_->SqlQuery(FromUtf8(kScript), location, nullptr); };
        EXPECT_EQ(WalkPersistently(query()), Walk(query()));
    }
}

TEST_F(ReadingOutOfMemory, AQueryGivesAllOutcomesOrAnError) {
    const nbx::String sql = FromUtf8(kScript);
    for (const uint32_t location : {kClientCursor, kServerCursor}) {
        Operation operation;
        operation.act = [&] { return Walk(database_->SqlQuery(sql, location, nullptr)); };
        operation.look = [this] { return Look(); };
        EXPECT_GT(FailEach(operation), 0U);
    }
}

TEST_F(ReadingOutOfMemory, RowsAsJsonAreWholeOrThereAreNone) {
    const nbx::String sql = FromUtf8("SELECT range, 'a text', [1, 2] FROM range(10)");
    Operation operation;
    operation.act = [&] {
        const auto statement = database_->CreateStatement(sql);
        statement->PrepareNext();
        const nbx::String json = statement->ExecuteToJSON();
        return Quietly([&] { return ToUtf8(json); });
    };
    EXPECT_GT(FailEach(operation), 0U);
}

}  // namespace
}  // namespace mduckdb::test
