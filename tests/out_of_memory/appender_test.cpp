#include "../appender/appender_fixture.h"
#include "each_allocation.h"
#include "support/test_host.h"

namespace mduckdb::test {
namespace {

/** What is tried on an appender to the table `t (i INTEGER, s VARCHAR, d DECIMAL(9,2), l INTEGER[])`. */
struct Append {
    const char* name;
    void (*act)(I_DuckDBAppender& appender);
    void (*prepare)(I_DuckDBAppender& appender) = [](I_DuckDBAppender&) {};
};

smart_ptr<ValueRow> MixedRow(int32_t number) {
    return Row({Long(number), Str("a text that is not short"), Double(1.25), Str("[1, 2]")});
}

void AppendArrays(I_DuckDBAppender& appender) {
    static const int32_t numbers[] = {1, 2};
    static const DuckDBBytes texts[] = {{"a text that is not short", 24}, {"b", 1}};
    static const DuckDBBytes lists[] = {{"[1, 2]", 6}, {"[]", 2}};
    const DuckDBColumnArray columns[] = {{DUCKDB_TYPE_INTEGER, numbers},
                                         {DUCKDB_TYPE_VARCHAR, texts},
                                         {DUCKDB_TYPE_INTEGER, numbers},
                                         {DUCKDB_TYPE_VARCHAR, lists}};
    appender.AppendColumns(columns, 4, 2);
}

const Append kAppends[] = {
    {"Row",
     [](auto& a) {
         static const auto row = MixedRow(2);
         a.AppendRow(row);
     }},
    {"Columns", AppendArrays},
    {"Flush", [](auto& a) { a.Flush(); }, [](auto& a) { a.AppendRow(MixedRow(3)); }},
    {"Commit", [](auto& a) { a.Commit(); }, AppendArrays},
    {"Close", [](auto& a) { a.Close(); }, [](auto& a) { a.AppendRow(MixedRow(4)); }},
};

class AppenderOutOfMemory : public AppenderTest, public testing::WithParamInterface<Append> {};

TEST_P(AppenderOutOfMemory, IsAnErrorThatStoresNothingOrIsWhole) {
    const Append& append = GetParam();
    Appender appender;
    Operation operation;
    operation.prepare = [&] {
        appender.reset();
        Direct("CREATE OR REPLACE TABLE t (i INTEGER, s VARCHAR, d DECIMAL(9,2), l INTEGER[])");
        appender = Open("t");
        appender->AppendRow(MixedRow(1));
        append.prepare(*appender);
    };
    operation.act = [&] {
        append.act(*appender);
        return std::string();
    };
    operation.look = [&] {
        std::string seen =
            std::to_string(appender->get_RowCount()) + " " + std::to_string(appender->get_PendingRowCount());
        for (const auto& row : Direct("SELECT count(*), count(s), sum(d), sum(len(l)) FROM t")) {
            seen += " " + row[0] + " " + row[1] + " " + row[2] + " " + row[3];
        }
        return seen;
    };
    FailEach(operation);
    // What is pending is whole.
    appender->Close();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t WHERE s IS NULL OR d IS NULL OR l IS NULL"), "0");
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), std::to_string(appender->get_StoredRowCount()));
}
INSTANTIATE_TEST_SUITE_P(Every, AppenderOutOfMemory, testing::ValuesIn(kAppends), NameOf<Append>);

TEST_F(AppenderTest, OfManyRowsOfArraysStoresThemOrNothing) {
    // One row more than are stored at a time.
    static const std::vector<int64_t> numbers(122'881, 7);
    DuckDBColumnArray column{};
    column.type = DUCKDB_TYPE_BIGINT;
    column.data = numbers.data();
    Appender appender;
    Operation operation;
    operation.prepare = [&] {
        appender.reset();
        Direct("CREATE OR REPLACE TABLE t (i BIGINT)");
        appender = Open("t");
    };
    operation.act = [&] {
        appender->AppendColumns(&column, 1, numbers.size());
        return std::string();
    };
    operation.look = [&] {
        return std::to_string(appender->get_RowCount()) + " " +
               std::to_string(appender->get_PendingRowCount()) + " " +
               std::to_string(appender->get_StoredRowCount()) + " " + Scalar("SELECT count(*) FROM t");
    };
    EXPECT_GT(FailEach(operation), 0u);
    appender->Close();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "122881");
}

TEST_F(AppenderTest, ThatCannotBeCreatedLeavesNothingBehind) {
    Direct("CREATE TABLE t (i INTEGER, s VARCHAR)");
    Appender appender;
    Operation operation;
    operation.prepare = [&] { appender.reset(); };
    operation.act = [&] {
        appender = Open("t");
        return Quietly([&] { return std::to_string(appender->get_ColumnCount()); });
    };
    operation.errors = {kBadAlloc};
    EXPECT_GT(FailEach(operation), 0u);
}

}  // namespace
}  // namespace mduckdb::test
