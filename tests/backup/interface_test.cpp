#include <gmock/gmock.h>

#include <filesystem>
#include <thread>

#include "backup/files.h"
#include "base/engine_lock.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

namespace {

namespace fs = std::filesystem;
using nbx::mrsql::I_DuckDBDatabase;
using testing::HasSubstr;

class SnapshotInterface : public testing::Test {
  protected:
    using Database = nbx::smart_ptr<I_DuckDBDatabase>;

    std::string Path(const std::string& name) const { return folder_ / name; }
    static nbx::mrsql::I_DuckDBSnapshot& Snapshots(const Database& database) {
        return *static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
            database->QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId));
    }
    static std::string Snapshot(const Database& database, const std::string& path) {
        return Thrown([&] { Snapshots(database).Snapshot(Location(path)); });
    }
    std::string Count(const std::string& path, const std::string& table = "t") const {
        return QueryText(*host_.Opened(path), "SELECT count(*) FROM " + table);
    }

    TempFolder folder_;
    TestHost host_;
};

TEST_F(SnapshotInterface, OfAnOpenDatabaseIsAFileThatOpens) {
    const Database database = host_.Created(Path("a.db"));
    Execute(*database, "CREATE TABLE t AS SELECT * FROM range(1000)");
    EXPECT_EQ(Snapshot(database, Path("b.db")), "none");
    EXPECT_EQ(Count(Path("b.db")), "1000");
    EXPECT_TRUE(fs::exists(Path("b.db.manifest.json")));
}

TEST_F(SnapshotInterface, ReportsErrorsAsTheDatabaseDoes) {
    const Database database = host_.Database(Path("a.db"));
    EXPECT_EQ(Snapshot(database, Path("b.db")),
              "xDuckDBError 72501 [" + Path("a.db") + "] [DuckDBDatabase is not open]");
    database->Create();
    EXPECT_EQ(Thrown([&] { Snapshots(database).Snapshot(nullptr); }), "xDBError 66000");
    EXPECT_EQ(Snapshot(database, Path("a.db")),
              "xDuckDBError 72501 [" + Path("a.db") + "] [" + Path("a.db") + " is there already]");
    const Database memory = host_.Opened(":memory:");
    EXPECT_EQ(Snapshot(memory, Path("b.db")),
              "xDuckDBError 72501 [:memory:] [A snapshot needs a database in a file]");
}

TEST_F(SnapshotInterface, OfAnEncryptedDatabaseIsRefusedWithTheDatabase) {
    const Database database = host_.Created(Path("a.db"));
    Execute(*database, "SET force_mbedtls_unsafe = 'true'; ATTACH '" + Path("secret.db") +
                           "' AS secret (ENCRYPTION_KEY 'key'); CREATE TABLE secret.t AS SELECT 1 AS i;"
                           "CREATE TABLE own AS SELECT 2 AS i; USE secret");
    EXPECT_EQ(Snapshot(database, Path("b.db")), "none") << "an attached database is no part of it";
    EXPECT_EQ(QueryText(*host_.Opened(Path("b.db")), "SELECT string_agg(table_name) FROM duckdb_tables()"),
              "own");
    database->Close();
    EXPECT_THAT(Snapshot(host_.Database(Path("secret.db")), Path("c.db")),
                HasSubstr("DuckDBDatabase is not open"));
    EXPECT_THAT(Thrown([&] { host_.Opened(Path("secret.db")); }),
                HasSubstr("Cannot open encrypted database"));
    EXPECT_FALSE(fs::exists(Path("c.db")));
}

TEST_F(SnapshotInterface, WorksOnAThreadThatHoldsTheEngineLock) {
    const Database database = host_.Created(Path("a.db"));
    Execute(*database, "CREATE TABLE t AS SELECT * FROM range(300000)");
    // A forced checkpoint waits for the snapshot, and blocks every transaction that begins meanwhile.
    std::thread forcing;
    {
        const mduckdb::EngineLockScope lock;
        forcing = std::thread([&] { Execute(*database, "INSERT INTO t VALUES (1); FORCE CHECKPOINT"); });
        EXPECT_EQ(Snapshot(database, Path("b.db")), "none");
    }
    forcing.join();
    EXPECT_EQ(Count(Path("b.db")), "300000");
}

TEST_F(SnapshotInterface, ReleasesTheEngineLockWhileItWorks) {
    const Database database = host_.Created(Path("a.db"));
    Execute(*database, "CREATE TABLE t AS SELECT i, 'text ' || i AS s FROM range(3000000) r(i)");
    std::atomic<bool> is_done{false};
    std::thread snapshot([&] {
        EXPECT_EQ(Snapshot(database, Path("b.db")), "none");
        is_done.store(true);
    });
    int statements = 0;
    while (!is_done.load()) {
        Execute(*database, "INSERT INTO t VALUES (-1, 'x')");
        ++statements;
    }
    snapshot.join();
    EXPECT_GT(statements, 3);
}

TEST_F(SnapshotInterface, StopsAtAnInterruptAndLeavesNothingBehind) {
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
    const Database database = host_.Created(Path("a.db"));
    Execute(*database, "CREATE TABLE t AS SELECT i, 'text ' || i AS s FROM range(3000000) r(i)");
    std::atomic<bool> is_done{false};
    std::thread interrupting([&] {
        while (!is_done.load()) {
            database->Interrupt();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    EXPECT_EQ(Snapshot(database, Path("b.db")), "xInterruptError 57501");
    is_done.store(true);
    interrupting.join();
    for (const auto& entry : fs::directory_iterator(folder_.get_Path())) {
        EXPECT_THAT(entry.path().filename().string(), testing::Not(HasSubstr("b.db")));
    }
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3000000");
}

TEST_F(SnapshotInterface, IsWaitedForByClose) {
    const Database database = host_.Created(Path("a.db"));
    Execute(*database, "CREATE TABLE t AS SELECT i, 'text ' || i AS s FROM range(1000000) r(i)");
    std::thread snapshot([&] { EXPECT_EQ(Snapshot(database, Path("b.db")), "none"); });
    while (fs::is_empty(folder_.get_Path()) ||
           std::none_of(
               fs::directory_iterator(folder_.get_Path()), fs::directory_iterator(),
               [](const auto& entry) { return entry.path().filename().string().starts_with("b.db"); })) {
        std::this_thread::yield();
    }
    database->Close();
    EXPECT_TRUE(fs::exists(Path("b.db")));
    snapshot.join();
}

}  // namespace
