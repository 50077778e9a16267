#include "appender_fixture.h"
#include "duckdb_internals/chunk_rows.h"

namespace mduckdb::test {
namespace {

TEST_F(AppenderTest, StoresRowsWhenItIsFlushed) {
    Direct("CREATE TABLE t (i INTEGER, s VARCHAR)");
    const Appender appender = Open("t");
    appender->AppendRow(Row({Long(1), Str("one")}));
    appender->AppendRows(Rows({Row({Long(2), Str("two")}), Row({NullOf(8), nullptr})}));
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "0");
    EXPECT_EQ(appender->get_PendingRowCount(), 3u);
    appender->Flush();
    EXPECT_EQ(Direct("FROM t"), (Table{{"1", "one"}, {"2", "two"}, {"NULL", "NULL"}}));
    EXPECT_EQ(appender->get_RowCount(), 3u);
    EXPECT_EQ(appender->get_StoredRowCount(), 3u);
    EXPECT_EQ(appender->get_PendingRowCount(), 0u);
}

TEST_F(AppenderTest, GivesTheColumnsThatWereNotChosenTheirDefaults) {
    Direct("CREATE SEQUENCE s");
    Direct(
        "CREATE TABLE t (n BIGINT DEFAULT nextval('s'), a INTEGER, d VARCHAR DEFAULT 'none', b INTEGER, "
        "g INTEGER GENERATED ALWAYS AS (a + b))");
    const Appender appender = OpenColumns("t", {Text("b"), Text("a")});
    ASSERT_EQ(appender->get_ColumnCount(), 2u);
    EXPECT_EQ(Utf8(appender->get_ColumnName(0)), "b");
    EXPECT_EQ(Utf8(appender->get_ColumnName(2)), "");
    appender->AppendRows(Rows({Row({Long(10), Long(1)}), Row({Long(20), Long(2)})}));
    appender->Close();
    EXPECT_EQ(Direct("FROM t"), (Table{{"1", "1", "none", "10", "11"}, {"2", "2", "none", "20", "22"}}));
}

TEST_F(AppenderTest, HasAllColumnsThatAreNotGenerated) {
    Direct("CREATE TABLE t (a INTEGER, g INTEGER GENERATED ALWAYS AS (a + 1), \"b\"\"c\" INTEGER)");
    const Appender appender = Open("t");
    ASSERT_EQ(appender->get_ColumnCount(), 2u);
    EXPECT_EQ(Utf8(appender->get_ColumnName(1)), "b\"c");
    appender->AppendRow(Row({Long(1), Long(2)}));
    appender->Close();
    EXPECT_EQ(Direct("FROM t"), (Table{{"1", "2", "2"}}));
}

TEST_F(AppenderTest, FindsATableOfAnotherSchemaAndCatalog) {
    Direct("CREATE SCHEMA \"my schema\"");
    Direct("CREATE TABLE \"my schema\".t (i INTEGER)");
    Direct("ATTACH ':memory:' AS other");
    Direct("CREATE TABLE other.t (i INTEGER)");
    DuckDBAppenderOptions options;
    options.table = Text("t");
    options.schema = Text("my schema");
    const Appender first = Appenders().CreateAppender(options);
    first->AppendRow(Row({Long(1)}));
    first->Close();
    options.schema.clear();
    options.catalog = Text("other");
    const Appender second = Appenders().CreateAppender(options);
    second->AppendRow(Row({Long(2)}));
    second->Close();
    EXPECT_EQ(Scalar("SELECT i FROM \"my schema\".t"), "1");
    EXPECT_EQ(Scalar("SELECT i FROM other.t"), "2");
}

TEST_F(AppenderTest, FlushesByItselfAndKeepsTheOrderOfTheRows) {
    Direct("CREATE TABLE t (i BIGINT, s VARCHAR)");
    const uint64_t block = ChunkRows::kMostChunks * 2048;
    const Appender appender = Open("t");
    for (uint64_t i = 0; i <= block; ++i) {
        appender->AppendRow(Row({LLong(static_cast<int64_t>(i)), Str("a text of row " + std::to_string(i))}));
    }
    EXPECT_EQ(appender->get_StoredRowCount(), block);
    EXPECT_EQ(appender->get_PendingRowCount(), 1u);
    appender->Close();
    EXPECT_EQ(Direct("SELECT count(*), count(*) FILTER (i = rowid AND s = 'a text of row ' || i) FROM t"),
              (Table{{std::to_string(block + 1), std::to_string(block + 1)}}));
}

TEST_F(AppenderTest, OfOneTransactionShowsNothingBeforeTheCommit) {
    Direct("CREATE TABLE t (i INTEGER)");
    const Appender appender = Open("t", true);
    appender->AppendRow(Row({Long(1)}));
    appender->Flush();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "0");
    EXPECT_EQ(appender->get_PendingRowCount(), 1u);
    appender->AppendRow(Row({Long(2)}));
    appender->Commit();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "2");
    appender->AppendRow(Row({Long(3)}));
    appender->Flush();
    appender->AppendRow(Row({Long(4)}));
    appender->Rollback();
    EXPECT_EQ(appender->get_PendingRowCount(), 0u);
    appender->AppendRow(Row({Long(5)}));
    appender->Close();
    EXPECT_EQ(Direct("FROM t"), (Table{{"1"}, {"2"}, {"5"}}));
}

TEST_F(AppenderTest, DiscardsWhatIsPendingWhenItIsReleased) {
    Direct("CREATE TABLE t (i INTEGER)");
    for (const bool in_one_transaction : {false, true}) {
        const Appender appender = Open("t", in_one_transaction);
        appender->AppendRow(Row({Long(1)}));
    }
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "0");
}

TEST_F(AppenderTest, IsInvalidAfterItIsClosed) {
    Direct("CREATE TABLE t (i INTEGER)");
    const Appender appender = Open("t");
    appender->Close();
    appender->Close();
    EXPECT_EQ(Catch([&] { appender->AppendRow(Row({Long(1)})); }), kAppenderIsInvalid);
    EXPECT_EQ(Catch([&] { appender->AppendRows(nullptr); }), kAppenderIsInvalid);
    EXPECT_EQ(Catch([&] { appender->Flush(); }), kAppenderIsInvalid);
    EXPECT_EQ(Catch([&] { appender->Commit(); }), kAppenderIsInvalid);
    EXPECT_EQ(Catch([&] { appender->Rollback(); }), kAppenderIsInvalid);
    EXPECT_EQ(appender->get_ColumnCount(), 1u);
    EXPECT_FALSE(appender->get_Database());
}

TEST_F(AppenderTest, LosesItsDatabaseWhenThatCloses) {
    Direct("CREATE TABLE t (i INTEGER)");
    const Appender with_rows = Open("t");
    const Appender without = Open("t");
    EXPECT_EQ(with_rows->get_Database().get(), database_.get());
    EXPECT_EQ(database_->get_RefsCount(), 1u);
    with_rows->AppendRow(Row({Long(1)}));
    database_->Close();
    EXPECT_EQ(Catch([&] { with_rows->AppendRow(Row({Long(1)})); }), kAppenderIsInvalid);
    EXPECT_EQ(with_rows->get_PendingRowCount(), 0u);
    // Only the one that has lost rows reports it.
    EXPECT_EQ(Catch([&] { with_rows->Close(); }), kAppenderIsInvalid);
    without->Close();
}

TEST_F(AppenderTest, OutlivesItsDatabase) {
    Direct("CREATE TABLE t (i INTEGER)");
    const Appender appender = Open("t");
    appender->AppendRow(Row({Long(1)}));
    database_ = nbx::MakeObject<DuckDBDatabase>(database_->get_Link()->get_Location());
    EXPECT_FALSE(appender->get_Database());
    EXPECT_EQ(Catch([&] { appender->Flush(); }), kAppenderIsInvalid);
}

TEST_F(AppenderTest, StoresTextsOfAnyLengthAndAlphabet) {
    Direct("CREATE TABLE t (s VARCHAR, h VARCHAR)");
    const Appender appender = Open("t");
    std::vector<std::string> texts = {"", "Привет", "10 €", "\x7F", "\xC2\x80", "日本語 😀"};
    for (const std::size_t length : {12u, 13u, 255u, 256u, 257u, 5000u}) {
        texts.push_back(std::string(length, 'x'));
        texts.push_back(std::string(length - 1, 'x') + "é");
    }
    for (const std::string& text : texts) {
        std::string hex;
        for (const char byte : text) {
            constexpr std::string_view kDigits = "0123456789ABCDEF";
            const unsigned bits = static_cast<uint8_t>(byte);
            hex.push_back(kDigits[bits / 16]);
            hex.push_back(kDigits[bits % 16]);
        }
        appender->AppendRow(Row({Str(text), Str(hex)}));
    }
    appender->Close();
    EXPECT_EQ(Direct("SELECT count(*), count(*) FILTER (hex(s) = h) FROM t"),
              (Table{{std::to_string(texts.size()), std::to_string(texts.size())}}));
}

TEST_F(AppenderTest, FlushesEarlierIfTheTextsAreLong) {
    Direct("CREATE TABLE t (s VARCHAR, l VARCHAR[])");
    constexpr uint64_t kLength = uint64_t{1} << 20;
    constexpr uint64_t kRows = 100;
    constexpr uint64_t kMost = ChunkRows::kMostBytes / kLength;
    const std::string text(kLength, 'x');
    const Appender appender = Open("t");
    const auto grow = [&](auto append) {
        const uint64_t before = appender->get_StoredRowCount() + appender->get_PendingRowCount();
        append();
        EXPECT_EQ(appender->get_StoredRowCount() + appender->get_PendingRowCount(), before + kRows);
        EXPECT_LE(appender->get_PendingRowCount(), kMost);
    };
    const auto row = Row({Str(text), nullptr});
    const auto of_a_list = Row({nullptr, Str("[" + text + "]")});
    const std::vector<DuckDBBytes> texts(kRows, {text.data(), text.size()});
    const std::vector<DuckDBBytes> none(kRows, {nullptr, 0});
    const uint64_t nothing[kRows / 64 + 1] = {};
    const DuckDBColumnArray columns[] = {{DUCKDB_TYPE_VARCHAR, texts.data()},
                                         {DUCKDB_TYPE_VARCHAR, none.data(), nothing}};
    for (const auto& one : {row, of_a_list}) {
        grow([&] {
            for (uint64_t i = 0; i < kRows; ++i) {
                appender->AppendRow(one);
            }
        });
    }
    grow([&] { appender->AppendColumns(columns, 2, kRows); });
    appender->Close();
    EXPECT_EQ(Direct("SELECT count(*), sum(len(s)), sum(len(l[1])) FROM t"),
              (Table{{"300", std::to_string(200 * kLength), std::to_string(100 * kLength)}}));
}

}  // namespace
}  // namespace mduckdb::test
