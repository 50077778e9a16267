// The behaviour that both kinds of cursor share.
#include "cursor_fixture.h"

namespace mduckdb {
namespace {

using nbx::mrsql::I_ExactDecimals;

class BothCursors : public testing::TestWithParam<uint32_t> {
  protected:
    Cursor Select(const std::string& sql) const { return database_.Select(sql, GetParam()); }

    OpenedDatabase database_;
};

INSTANTIATE_TEST_SUITE_P(Cursors, BothCursors, testing::Values(kServerCursor, kClientCursor),
                         [](const auto& kind) {
                             return kind.param == kClientCursor ? std::string("client")
                                                                : std::string("server");
                         });

TEST_P(BothCursors, DescribeTheirColumns) {
    const Cursor cursor =
        Select("SELECT 1.5::DECIMAL(18,3) AS \"pr\u00e9is\", [1]::INTEGER[] AS l, 'x'::VARIANT AS v");
    EXPECT_EQ(cursor->get_ColumnCount(), 3U);
    EXPECT_EQ(ToUtf8(cursor->get_ColumnName(0)), "pr\u00e9is");
    EXPECT_EQ(ToUtf8(cursor->get_ColumnTypeName(0)), "DECIMAL(18,3)");
    EXPECT_EQ(ToUtf8(cursor->get_ColumnTypeName(1)), "INTEGER[]");
    EXPECT_EQ(cursor->get_ColumnType(0), 19U);
    EXPECT_EQ(cursor->get_ColumnType(1), 24U);
    EXPECT_EQ(cursor->get_ColumnType(2), 41U);
}

TEST_P(BothCursors, ReturnNothingForAMissingColumn) {
    const Cursor cursor = Select("SELECT 1 AS a, 2 AS b");
    EXPECT_TRUE(cursor->get_ColumnName(99).isEmpty());
    EXPECT_EQ(&cursor->get_ColumnName(2), &nbx::String::sEmpty());
    EXPECT_EQ(&cursor->get_ColumnTypeName(2), &nbx::String::sEmpty());
    EXPECT_EQ(cursor->get_ColumnType(99), 0U);
}

TEST_P(BothCursors, DescribeMoreColumnsThanTheyHaveRoomForInside) {
    std::string sql = "SELECT ";
    for (int i = 0; i < 30; ++i) {
        sql += (i == 0 ? "" : ", ") + std::to_string(i) + " AS c" + std::to_string(i);
    }
    const Cursor cursor = Select(sql);
    ASSERT_EQ(cursor->get_ColumnCount(), 30U);
    ASSERT_TRUE(cursor->NextRecord());
    for (uint32_t column = 0; column < 30; ++column) {
        EXPECT_EQ(ToUtf8(cursor->get_ColumnName(column)), "c" + std::to_string(column));
        EXPECT_EQ(DescribeField(*cursor, column), "Long " + std::to_string(column));
    }
}

TEST_P(BothCursors, KnowTheirDatabaseUntilTheyAreClosed) {
    const Cursor cursor = Select("SELECT 1");
    EXPECT_EQ(cursor->get_Database().get(), &*database_);
    cursor->Close();
    EXPECT_FALSE(cursor->get_Database());
}

TEST_P(BothCursors, CheckTheColumnBeforeThePosition) {
    const Cursor cursor = Select("SELECT 1, 2");
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(2); }), CursorError("inColumnIndex is out of bounds"));
    ASSERT_TRUE(cursor->NextRecord());
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(2); }), CursorError("inColumnIndex is out of bounds"));
    EXPECT_EQ(ErrorOf([&] { cursor->get_Value(UINT32_MAX); }), CursorError("inColumnIndex is out of bounds"));
    EXPECT_EQ(DescribeField(*cursor, 1), "Long 2");
}

void ExpectInvalid(I_DuckDBCursor& cursor) {
    EXPECT_EQ(ErrorOf([&] { cursor.get_RecordCount(); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor.get_CurrentRecord(); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor.put_CurrentRecord(1); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor.FirstRecord(); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor.LastRecord(); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor.NextRecord(); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor.PrevRecord(); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor.get_Value(0); }), kInvalidCursor);
    EXPECT_EQ(ErrorOf([&] { cursor.get_Value(99); }), kInvalidCursor);
}

TEST_P(BothCursors, ReportOnlyTheirColumnsAfterClose) {
    const Cursor cursor = Select("SELECT 1 AS a");
    ASSERT_TRUE(cursor->NextRecord());
    cursor->Close();
    EXPECT_EQ(cursor->get_ColumnCount(), 1U);
    EXPECT_EQ(ToUtf8(cursor->get_ColumnName(0)), "a");
    EXPECT_EQ(ToUtf8(cursor->get_ColumnTypeName(0)), "INTEGER");
    EXPECT_EQ(cursor->get_ColumnType(0), 4U);
    ExpectInvalid(*cursor);
    cursor->Close();
    ExpectInvalid(*cursor);
}

TEST_P(BothCursors, AreInvalidAfterDetach) {
    const Cursor cursor = Select("SELECT 1 AS a");
    {
        const EngineLockScope lock;
        cursor->Detach();
        cursor->Detach();
    }
    ExpectInvalid(*cursor);
    EXPECT_FALSE(cursor->get_Database());
    EXPECT_EQ(ToUtf8(cursor->get_ColumnName(0)), "a");
}

TEST_P(BothCursors, AreInvalidAfterTheDatabaseHasClosed) {
    const Cursor cursor = Select("SELECT 1 AS a");
    database_->Close();
    ExpectInvalid(*cursor);
    EXPECT_EQ(ToUtf8(cursor->get_ColumnName(0)), "a");
}

TEST_P(BothCursors, ReturnValuesThatOutliveThem) {
    Cursor cursor = Select("SELECT repeat('long text ', 10)");
    ASSERT_TRUE(cursor->NextRecord());
    const nbx::smart_ptr<nbx::I_Value> value = cursor->get_Value(0);
    cursor.reset();
    database_->Close();
    EXPECT_EQ(ToUtf8(value->get_Text()).size(), 100U);
}

TEST_P(BothCursors, StartWithOneReferenceForTheCreator) {
    const Cursor cursor = Select("SELECT 1");
    EXPECT_EQ(cursor->get_RefsCount(), 1U);
    EXPECT_EQ(cursor->AddRef(), 2U);
    EXPECT_EQ(cursor->Release(), 1U);
}

TEST_P(BothCursors, AnswerQueryInterfaceForTheirInterfaces) {
    const Cursor cursor = Select("SELECT 1");
    EXPECT_EQ(cursor->QueryInterface(nbx::mrsql::kDuckDBCursorInterfaceId), cursor.get());
    EXPECT_NE(cursor->QueryInterface(nbx::mrsql::kFetchStatusInterfaceId), nullptr);
    EXPECT_EQ(cursor->QueryInterface(0), nullptr);
    EXPECT_EQ(cursor->QueryInterface(12345), nullptr);
}

TEST_P(BothCursors, HoldTheEngineLockOnlyWhileTheyNeedIt) {
    const Cursor cursor = Select("SELECT 1");
    EXPECT_FALSE(nbx::gIsGlobalLockTaken.get());
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_FALSE(nbx::gIsGlobalLockTaken.get());
    cursor->Close();
    EXPECT_NE(ErrorOf([&] { cursor->NextRecord(); }), "");
    EXPECT_FALSE(nbx::gIsGlobalLockTaken.get());
    if (nbx::GetGlobalEngineLock().try_lock()) {
        nbx::GetGlobalEngineLock().unlock();
    } else {
        ADD_FAILURE() << "the engine lock is still held";
    }
}

TEST_P(BothCursors, WorkOnAThreadThatHoldsTheLockAlready) {
    const EngineLockScope lock;
    const Cursor cursor = Select("SELECT 7");
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_EQ(DescribeField(*cursor, 0), "Long 7");
    cursor->Close();
    EXPECT_TRUE(nbx::gIsGlobalLockTaken.get());
}

TEST_P(BothCursors, ReportTheirKind) {
    const Cursor cursor = Select("SELECT 1");
    EXPECT_EQ(IsClientCursor(cursor.get()), GetParam() == kClientCursor);
    EXPECT_EQ(static_cast<bool>(GetClientCursorRows(cursor.get())), GetParam() == kClientCursor);
}

TEST(CursorKinds, ANullCursorIsNotAClientCursor) {
    EXPECT_FALSE(IsClientCursor(nullptr));
    EXPECT_FALSE(GetClientCursorRows(nullptr));
}

TEST(CursorKinds, EveryLocationBut1CreatesAServerCursor) {
    const OpenedDatabase database;
    for (const uint32_t location : {0U, 2U, 3U, UINT32_MAX}) {
        EXPECT_FALSE(IsClientCursor(database.Select("SELECT 1", location).get())) << location;
    }
    EXPECT_TRUE(IsClientCursor(database.Select("SELECT 1", 1).get()));
}

I_ExactDecimals& DecimalsOf(I_DuckDBCursor& cursor) {
    return *static_cast<I_ExactDecimals*>(cursor.QueryInterface(nbx::mrsql::kExactDecimalsInterfaceId));
}

TEST_P(BothCursors, KnowEveryDigitOfADecimal) {
    const std::string from = " FROM range(5000) r(i)";
    const std::string number =
        "CASE WHEN i % 7 = 3 THEN NULL ELSE "
        "123456789012345678.123::DECIMAL(38,3) * (i - 2500)::DECIMAL(6,0) END";
    const Cursor cursor = Select("SELECT " + number + ", i" + from);
    const Cursor texts = Select("SELECT coalesce((" + number + ")::VARCHAR, '')" + from);
    I_ExactDecimals& decimals = DecimalsOf(*cursor);
    EXPECT_NE(ErrorOf([&] { decimals.get_DecimalText(0); }), "");  // before the first row
    uint64_t rows = 0;
    while (cursor->NextRecord() && texts->NextRecord()) {
        // Every third only: the texts need not be asked for in step with the rows.
        if (++rows % 3 == 0) {
            ASSERT_EQ(ToUtf8(decimals.get_DecimalText(0)), ToUtf8(texts->get_Value(0)->get_Text())) << rows;
        }
    }
    EXPECT_EQ(rows, 5000U);
}

TEST_P(BothCursors, HaveDecimalTextsOfDecimalsOnly) {
    const Cursor cursor = Select("SELECT 1.5::DECIMAL(5,2), 1.5::DOUBLE, [1.5], NULL::DECIMAL(5,2)");
    ASSERT_TRUE(cursor->NextRecord());
    I_ExactDecimals& decimals = DecimalsOf(*cursor);
    EXPECT_EQ(ToUtf8(decimals.get_DecimalText(0)), "1.50");
    for (const uint32_t column : {1U, 2U, 3U}) {
        EXPECT_TRUE(decimals.get_DecimalText(column).isEmpty()) << column;
    }
    EXPECT_NE(ErrorOf([&] { decimals.get_DecimalText(4); }), "");
    cursor->Close();
    EXPECT_NE(ErrorOf([&] { decimals.get_DecimalText(0); }), "");
}

TEST(ClientCursorDecimals, FindsDecimalTextsInAnyOrder) {
    const OpenedDatabase database;
    const Cursor cursor = database.Select("SELECT i::DECIMAL(20,2) FROM range(10000) r(i)", kClientCursor);
    I_ExactDecimals& decimals = DecimalsOf(*cursor);
    for (const uint32_t record : {10000U, 1U, 2048U, 2049U, 2047U, 4097U, 4096U, 1U}) {
        ASSERT_TRUE(cursor->put_CurrentRecord(record));
        EXPECT_EQ(ToUtf8(decimals.get_DecimalText(0)), std::to_string(record - 1) + ".00");
    }
}

TEST(ClientCursorDecimals, HasNoDecimalTextsOfRowsThatWereComputedWhileItReadThem) {
    const OpenedDatabase database;
    const Cursor cursor = database.Open(database.Stream("SELECT 1.5::DECIMAL(20,2)"), kClientCursor);
    ASSERT_TRUE(cursor->NextRecord());
    EXPECT_TRUE(DecimalsOf(*cursor).get_DecimalText(0).isEmpty());
}

}  // namespace
}  // namespace mduckdb
