#include <gmock/gmock.h>

#include "database_test_base.h"

/* What a host would lose if a version of DuckDB behaved as it does on its own. */
namespace {

using DatabaseVersions = DatabaseTest;
using testing::StartsWith;

/** What leaves the rows of the transaction alone when it fails. */
const char* const kUnpreparable[] = {
    "SELEC 1",
    "SELECT * FROM nowhere",
    "SELECT nothing FROM t",
    "SELECT i + DATE '2000-01-01' + 'x' + [1] FROM t",
    "CREATE TABLE u(i nosuchtype)",
    "PRAGMA nosuch",
};

TEST_F(DatabaseVersions, AStatementThatCannotBePreparedKeepsTheRowsBeforeIt) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t(i INTEGER)");
    for (const char* const statement : kUnpreparable) {
        SCOPED_TRACE(statement);
        Execute(*database, "DELETE FROM t; BEGIN; INSERT INTO t VALUES (1)");
        EXPECT_THAT(Thrown([&] { Execute(*database, statement); }), StartsWith("xDuckDBError 72501"));
        Execute(*database, "INSERT INTO t VALUES (2); COMMIT");
        EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "2");
    }
}

TEST_F(DatabaseVersions, ATransactionEndsWithAStatementThatFailsWhileItRuns) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t(i INTEGER); BEGIN; INSERT INTO t VALUES (1)");
    Thrown([&] { Execute(*database, "INSERT INTO t SELECT 'x'::INTEGER"); });
    Thrown([&] { Execute(*database, "COMMIT"); });
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "0");
}

TEST_F(DatabaseVersions, AColumnOfNullsHasTheTypeInteger) {
    const auto database = host.Opened(":memory:");
    EXPECT_EQ(QueryText(*database, "SELECT column_type FROM (DESCRIBE SELECT NULL AS n)"), "INTEGER");
    Execute(*database, "CREATE TABLE t AS SELECT NULL AS n, [] AS l");
    EXPECT_EQ(QueryText(*database, "SELECT string_agg(column_type, ' ') FROM (DESCRIBE t)"),
              "INTEGER INTEGER[]");
}

std::string StorageVersion(nbx::mrsql::I_DuckDBDatabase& database) {
    return QueryText(database,
                     "SELECT tags['storage_version'] FROM duckdb_databases() WHERE database_name = "
                     "current_database()");
}

TEST_F(DatabaseVersions, ANewFileCanBeReadByEveryDuckDB1) {
    const auto database = host.Created(Path());
    EXPECT_THAT(StorageVersion(*database), StartsWith("v1.0.0"));
    const auto blocks = host.Database(Path("blocks.db"));
    blocks->put_BlockSize(16384);
    blocks->Create();
    EXPECT_THAT(StorageVersion(*blocks), StartsWith("v1.0.0"));
}

TEST_F(DatabaseVersions, AFileKeepsTheStorageVersionThatTheHostAskedFor) {
    const auto database = host.Database(Path());
    database->put_StorageVersion(S("latest"));
    database->Create();
    Execute(*database, "CREATE TABLE t AS SELECT 1::VARIANT AS v");
    const std::string version = StorageVersion(*database);
    EXPECT_NE(version.substr(0, 6), "v1.0.0");
    database->Close();
    database->Open();
    Execute(*database, "INSERT INTO t VALUES (2::VARIANT); CHECKPOINT");
    EXPECT_EQ(StorageVersion(*database), version);
}

TEST_F(DatabaseVersions, AnAttachedNewFileCanBeReadByEveryDuckDB1) {
    const auto database = host.Opened(":memory:");
    Execute(*database, "ATTACH '" + Path("a.db") + "'; USE a");
    EXPECT_THAT(StorageVersion(*database), StartsWith("v1.0.0"));
}

}  // namespace
