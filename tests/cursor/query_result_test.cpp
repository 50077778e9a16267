#include "objects/query_result.h"

#include "cursor_fixture.h"

namespace mduckdb {
namespace {

using QueryResult = nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult>;

class QueryResultTest : public testing::Test {
  protected:
    QueryResultTest() { database_.Query("CREATE TABLE t AS SELECT i FROM range(3) r(i)"); }

    static QueryResult Make(DuckDBDatabase& database, ResultList results, uint32_t location) {
        QueryResult head = MakeQueryResult(database.get_Link(), location);
        FillQueryResult(*head, std::move(results));
        return head;
    }
    template <class... Sql>
    QueryResult Run(uint32_t location, Sql... sql) {
        ResultList results;
        (results.push_back(database_.Query(sql)), ...);
        return Make(*database_, std::move(results), location);
    }

    /** The result of a failed statement, with the connection's error text. */
    QueryResult RunFailing(const std::string& sql) {
        ResultList results(1);
        EXPECT_EQ(duckdb_query(database_.get_Connection(), sql.c_str(), results[0].Receive()), DuckDBError);
        return Make(*database_, std::move(results), kServerCursor);
    }

    OpenedDatabase database_;
};

TEST_F(QueryResultTest, ChainsTheOutcomesOfAScript) {
    const QueryResult first = Run(kServerCursor, "UPDATE t SET i = i + 1", "SELECT i FROM t ORDER BY i");
    EXPECT_EQ(first->get_Flags(), nbx::mrsql::kHasRowsChanged);
    EXPECT_EQ(first->get_RowsChanged(), 3);
    EXPECT_FALSE(first->get_Cursor());
    EXPECT_EQ(first->get_ErrorPosition(), -1);
    EXPECT_TRUE(first->get_ErrorMessage().isEmpty());
    EXPECT_TRUE(first->get_ErrorType().isEmpty());

    const QueryResult second = first->NextResult();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->get_Flags(), nbx::mrsql::kHasCursor);
    EXPECT_EQ(second->get_RowsChanged(), 0);
    const Cursor cursor = second->get_Cursor();
    ASSERT_TRUE(cursor);
    EXPECT_EQ(cursor->get_RefsCount(), 2U);
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_EQ(DescribeField(*cursor, 0), "LLong 1");
    EXPECT_FALSE(second->NextResult());
}

TEST_F(QueryResultTest, ReturnsTheRestOfTheChainOnce) {
    const QueryResult first = Run(kServerCursor, "SELECT 1", "SELECT 2", "SELECT 3");
    const QueryResult second = first->NextResult();
    ASSERT_TRUE(second);
    EXPECT_FALSE(first->NextResult());
    const QueryResult third = second->NextResult();
    ASSERT_TRUE(third);
    EXPECT_FALSE(third->NextResult());
}

TEST_F(QueryResultTest, PassesOnTheLocationOfItsCursor) {
    const QueryResult first = Run(kClientCursor, "SELECT 1", "SELECT 2");
    EXPECT_TRUE(IsClientCursor(first->get_Cursor().get()));
    EXPECT_TRUE(IsClientCursor(first->NextResult()->get_Cursor().get()));
    EXPECT_FALSE(IsClientCursor(Run(kServerCursor, "SELECT 1")->get_Cursor().get()));
}

TEST_F(QueryResultTest, HasNoFlagsForAStatementWithNeitherRowsNorChanges) {
    const QueryResult result = Run(kServerCursor, "CREATE TABLE u(i INTEGER)");
    EXPECT_EQ(result->get_Flags(), 0U);
    EXPECT_FALSE(result->get_Cursor());
}

TEST_F(QueryResultTest, IsEmptyWithoutResults) {
    const QueryResult result = Make(*database_, {}, kServerCursor);
    EXPECT_EQ(result->get_Flags(), 0U);
    EXPECT_FALSE(result->NextResult());
    result->Close();
}

TEST_F(QueryResultTest, ReadsDuckDBsReportOfAFailure) {
    const QueryResult result = RunFailing("SELECT wrong FROM t");
    EXPECT_EQ(result->get_Flags(), nbx::mrsql::kHasError);
    EXPECT_EQ(ToUtf8(result->get_ErrorType()), "Binder");
    EXPECT_NE(ToUtf8(result->get_ErrorMessage()).find("wrong"), std::string::npos);
    EXPECT_EQ(result->get_ErrorPosition(), 7);
    EXPECT_FALSE(result->get_Cursor());
}

TEST_F(QueryResultTest, HasNoPositionWhenDuckDBReportsNone) {
    const QueryResult result = RunFailing("SELECT error('stop')");
    EXPECT_EQ(result->get_Flags(), nbx::mrsql::kHasError);
    EXPECT_EQ(ToUtf8(result->get_ErrorMessage()), "stop");
    EXPECT_EQ(result->get_ErrorPosition(), -1);
}

TEST_F(QueryResultTest, KeepsAnErrorThatIsNotJSONWhole) {
    database_.Query("SET errors_as_json = false");
    const QueryResult result = RunFailing("SELECT error('stop')");
    EXPECT_EQ(result->get_Flags(), nbx::mrsql::kHasError);
    EXPECT_NE(ToUtf8(result->get_ErrorMessage()).find("stop"), std::string::npos);
    EXPECT_TRUE(result->get_ErrorType().isEmpty());
    EXPECT_EQ(result->get_ErrorPosition(), -1);
}

TEST_F(QueryResultTest, KeepsItsFactsButNotItsCursorAfterClose) {
    const QueryResult first = Run(kServerCursor, "UPDATE t SET i = 0", "SELECT 1");
    const QueryResult second = first->NextResult();
    const Cursor cursor = second->get_Cursor();
    first->Close();
    second->Close();
    EXPECT_EQ(first->get_RowsChanged(), 3);
    EXPECT_EQ(first->get_Flags(), nbx::mrsql::kHasRowsChanged);
    EXPECT_EQ(second->get_Flags(), nbx::mrsql::kHasCursor);
    EXPECT_FALSE(second->get_Cursor());
    EXPECT_EQ(cursor->get_RefsCount(), 1U);
    EXPECT_TRUE(cursor->NextRecord()) << "the cursor is the database's, not the result's";
}

TEST_F(QueryResultTest, DropsTheRestOfTheChainAtClose) {
    const QueryResult first = Run(kServerCursor, "SELECT 1", "SELECT 2");
    first->Close();
    EXPECT_FALSE(first->NextResult());
}

TEST_F(QueryResultTest, HasNoCursorAfterTheDatabaseHasClosed) {
    const QueryResult result = Run(kServerCursor, "SELECT 1", "SELECT 2");
    const Cursor cursor = result->get_Cursor();
    database_->Close();
    EXPECT_FALSE(result->get_Cursor());
    EXPECT_FALSE(result->NextResult());
    EXPECT_EQ(ErrorOf([&] { cursor->NextRecord(); }), kInvalidCursor);
}

TEST_F(QueryResultTest, DiesInAnyOrderWithItsCursorAndItsDatabase) {
    for (int order = 0; order < 6; ++order) {
        OpenedDatabase database;
        ResultList results;
        results.push_back(database.Query("SELECT i FROM range(3000) t(i)"));
        results.push_back(database.Query("SELECT 2"));
        QueryResult result =
            Make(*database, std::move(results), order % 2 == 0 ? kClientCursor : kServerCursor);
        Cursor cursor = result->get_Cursor();
        const auto release = [&](int what) {
            what == 0 ? result.reset() : what == 1 ? cursor.reset() : database.Forget();
        };
        release(order / 2);
        release((order / 2 + 1 + order % 2) % 3);
        release((order / 2 + 2 - order % 2) % 3);
    }
}

TEST_F(QueryResultTest, AnswersQueryInterfaceAndCountsItsReferences) {
    const QueryResult result = Run(kServerCursor, "SELECT 1");
    EXPECT_EQ(result->QueryInterface(nbx::mrsql::kDuckDBQueryResultInterfaceId), result.get());
    EXPECT_EQ(result->QueryInterface(1), nullptr);
    EXPECT_EQ(result->get_RefsCount(), 1U);
    EXPECT_EQ(result->AddRef(), 2U);
    EXPECT_EQ(result->Release(), 1U);
}

}  // namespace
}  // namespace mduckdb
