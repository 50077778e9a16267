// Failing calls of DuckDB while rows are appended.
#include "appender_fixture.h"
#include "support/duckdb_faults.h"

namespace mduckdb::test {
namespace {

/** One row more than are stored at a time. */
constexpr uint64_t kRows = 122'881;

/** Numbers for the table `t (i BIGINT)`. */
class AppenderFaults : public AppenderTest {
  protected:
    AppenderFaults() : numbers_(kRows, 7) {
        Direct("CREATE TABLE t (i BIGINT)");
        column_.type = DUCKDB_TYPE_BIGINT;
        column_.data = numbers_.data();
    }
    ~AppenderFaults() override { duckdb_faults::Reset(); }

    void AppendMany(const Appender& appender) const { appender->AppendColumns(&column_, 1, kRows); }

  private:
    const std::vector<int64_t> numbers_;
    DuckDBColumnArray column_{};
};

TEST_F(AppenderFaults, ManyRowsOfArraysAreNotCollected) {
    const Appender appender = Open("t");
    duckdb_faults::Reset();
    AppendMany(appender);
    EXPECT_EQ(appender->get_StoredRowCount(), kRows - 1);
    appender->Close();
    // The chunk that they passed through is all that was created.
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_destroy_data_chunk"), 1u);
    EXPECT_EQ(Scalar("SELECT count(*) FROM t WHERE i = 7"), std::to_string(kRows));
}

TEST_F(AppenderFaults, ACommitThatFailsIsNotTriedAgain) {
    const Appender appender = Open("t");
    duckdb_faults::Reset();
    // The first one begins the transaction.
    duckdb_faults::FailCall("duckdb_query", 2);
    const Thrown thrown = Catch([&] { AppendMany(appender); });
    EXPECT_EQ(thrown.message.find("Rows 1 to 122880: "), 0u) << thrown.message;
    EXPECT_EQ(appender->get_RowCount(), kRows - 1);
    EXPECT_EQ(appender->get_PendingRowCount() + appender->get_StoredRowCount(), 0u);
    EXPECT_EQ(duckdb_faults::get_Log("duckdb_query COMMIT").size(), 1u);
    duckdb_faults::Reset();
    AppendMany(appender);
    appender->Close();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), std::to_string(kRows));
}

TEST_F(AppenderFaults, RowsThatCannotBeStoredAtOnceAreCollected) {
    const Appender appender = Open("t");
    duckdb_faults::Reset();
    duckdb_faults::FailCall("duckdb_query", 1);
    AppendMany(appender);
    EXPECT_EQ(appender->get_RowCount(), kRows);
    appender->Close();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), std::to_string(kRows));
}

}  // namespace
}  // namespace mduckdb::test
