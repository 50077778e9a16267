#include "backup/comparison.h"

#include <gmock/gmock.h>

#include "everything.h"
#include "plain_engine.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

using testing::ElementsAre;

/** A separate in-memory database on which a script was run. */
class Side {
  public:
    explicit Side(const std::string& script) : worker_(SharedEngine(), stop_) {
        static int number = 0;
        const std::string name = "side" + std::to_string(++number);
        worker_.Run("ATTACH ':memory:' AS " + name);
        worker_.Run("USE " + name);
        PrepareForFacts(worker_);
        EXPECT_EQ(duckdb_query(worker_.get(), script.empty() ? "SELECT 1" : script.c_str(), nullptr),
                  DuckDBSuccess)
            << script;
    }
    DatabaseFacts Read() { return ReadFacts(worker_); }

  private:
    static duckdb_database SharedEngine() {
        static const PlainEngine engine(":memory:");
        return engine.get();
    }

    BackupStop stop_;
    SqlWorker worker_;
};

std::vector<std::string> Differences(const std::string& first, const std::string& second) {
    return CompareFacts(Side(first).Read(), Side(second).Read(), {"one", "other"});
}

/** The differences between two tables t, each with a column c of the type and one row. */
std::vector<std::string> ValueDifferences(const std::string& type, const std::string& first,
                                          const std::string& second) {
    const std::string table = "CREATE TABLE t (c " + type + "); INSERT INTO t VALUES ";
    return Differences(table + "(" + first + ")", table + "(" + second + ")");
}

TEST(Comparison, FindsNothingBetweenEqualDatabases) {
    const std::vector<std::string> none;
    EXPECT_EQ(Differences(kEverything, kEverything), none);
    EXPECT_EQ(Differences("", ""), none);
}

TEST(Comparison, IgnoresTheOrderOfRows) {
    EXPECT_THAT(Differences("CREATE TABLE t AS SELECT i FROM range(10000) r(i)",
                            "CREATE TABLE t AS SELECT i FROM range(10000) r(i) ORDER BY i DESC"),
                ElementsAre());
}

TEST(Comparison, CountsDuplicateRows) {
    EXPECT_THAT(Differences("CREATE TABLE t AS FROM (VALUES (1), (1), (2)) v(c)",
                            "CREATE TABLE t AS FROM (VALUES (1), (2), (2)) v(c)"),
                ElementsAre("table \"main\".\"t\": the rows differ, 3 rows in both"));
    EXPECT_THAT(Differences("CREATE TABLE t AS FROM (VALUES (1), (1)) v(c)",
                            "CREATE TABLE t AS FROM (VALUES (1)) v(c)"),
                ElementsAre("table \"main\".\"t\": 2 rows in the one, 1 row in the other"));
}

TEST(Comparison, DistinguishesValuesThatDuckDbTreatsAsEqual) {
    const std::vector<std::string> differs{"table \"main\".\"t\": the rows differ, 1 row in both"};
    EXPECT_EQ(ValueDifferences("INTERVAL", "INTERVAL 1 month", "INTERVAL 30 days"), differs);
    EXPECT_EQ(ValueDifferences("TIMETZ", "'10:00:00+01'", "'09:00:00+00'"), differs);
    EXPECT_EQ(ValueDifferences("DOUBLE", "0.0", "'-0.0'"), differs);
    EXPECT_EQ(ValueDifferences("DOUBLE[]", "[0.0]", "['-0.0'::DOUBLE]"), differs);
    EXPECT_EQ(ValueDifferences("STRUCT(i INTERVAL)", "{'i': INTERVAL 1 month}", "{'i': INTERVAL 30 days}"),
              differs);
    EXPECT_EQ(ValueDifferences("VARIANT", "1::INTEGER::VARIANT", "1::BIGINT::VARIANT"), differs);
    EXPECT_EQ(ValueDifferences("VARCHAR[]", "['a, b']", "['a', 'b']"), differs);
    EXPECT_EQ(ValueDifferences("VARCHAR", "''", "NULL"), differs);
    EXPECT_EQ(ValueDifferences("INTEGER[]", "[]", "[NULL]"), differs);
    EXPECT_EQ(
        ValueDifferences("UNION(a INTEGER, b BIGINT)", "union_value(a := 1)", "union_value(b := 1::BIGINT)"),
        differs);
}

TEST(Comparison, SeesEveryColumn) {
    EXPECT_THAT(
        Differences("CREATE TABLE t AS SELECT 1 AS a, 2 AS b", "CREATE TABLE t AS SELECT 2 AS a, 1 AS b"),
        ElementsAre("table \"main\".\"t\": the rows differ, 1 row in both"));
}

TEST(Comparison, NamesWhatIsMissingOnceWithoutItsParts) {
    EXPECT_THAT(Differences("CREATE VIEW v AS SELECT 1 AS c", ""),
                ElementsAre("column main.v.c: in the one, but not in the other",
                            "view main.v: in the one, but not in the other"));
    EXPECT_THAT(Differences("", "CREATE SCHEMA s"),
                ElementsAre("schema s: in the other, but not in the one"));
}

TEST(Comparison, NamesWhatDiffers) {
    const std::string table = "CREATE TABLE t (i INTEGER);";
    EXPECT_THAT(Differences(table + "COMMENT ON TABLE t IS 'x'", table),
                ElementsAre("table main.t: comment is 'x' in the one, nothing in the other"));
    EXPECT_THAT(Differences(table + "COMMENT ON COLUMN t.i IS 'x'", table),
                ElementsAre("column main.t.i: comment is 'x' in the one, nothing in the other"));
    EXPECT_THAT(Differences("CREATE SEQUENCE q; SELECT nextval('q')", "CREATE SEQUENCE q"),
                ElementsAre("sequence main.q: next value is '2' in the one, '1' in the other"));
    EXPECT_THAT(Differences("CREATE TYPE m AS ENUM ('a')", "CREATE TYPE m AS ENUM ('b')"),
                ElementsAre("type main.m: labels is '[a]' in the one, '[b]' in the other"));
    EXPECT_THAT(Differences("CREATE MACRO m(a) AS a + 1", "CREATE MACRO m(a) AS a + 2"),
                ElementsAre("macro main.m[a]: definition is '(a + 1)' in the one, '(a + 2)' in the other"));
    EXPECT_THAT(Differences(table + "CREATE INDEX x ON t (i)", table),
                ElementsAre("index main.x: in the one, but not in the other"));
}

TEST(Comparison, NamesAConstraintThatIsMissing) {
    const std::vector<std::string> lines =
        Differences("CREATE TABLE t (i INTEGER CHECK (i > 0))", "CREATE TABLE t (i INTEGER)");
    EXPECT_THAT(lines,
                testing::Contains("constraint main.t: CHECK((i > 0)): in the one, but not in the other"));
}

TEST(Comparison, LetsTheSequencesOfALiveDatabaseBeAhead) {
    Side live("CREATE SEQUENCE q; SELECT nextval('q')");
    Side copy("CREATE SEQUENCE q");
    EXPECT_THAT(CompareCatalogs(live.Read().catalog, copy.Read().catalog, {"one", "other"}, true),
                ElementsAre());
}

}  // namespace
}  // namespace mduckdb
