#include <filesystem>

#include "base/holders.h"
#include "database_test_base.h"
#include "objects/database.h"
#include "support/expected_by_version.h"

namespace {

using DatabaseLifecycle = DatabaseTest;
using duckdb_faults::CountCalls;
namespace fs = std::filesystem;

nbx::mrsql::DuckDBDatabaseOptions ReadOnly() {
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.read_write = false;
    return options;
}

TEST_F(DatabaseLifecycle, TwoObjectsOnOneLocationShareOneEngineUntilTheLastCloses) {
    const auto first = host.Created(Path());
    const auto second = host.Opened(Path());
    EXPECT_EQ(CountCalls("duckdb_open_ext"), 1u);
    EXPECT_EQ(CountCalls("duckdb_connect") - CountCalls("duckdb_disconnect"), 2u);
    EXPECT_EQ(first->get_ConnectionCount(), 2u);
    EXPECT_EQ(second->get_ConnectionCount(), 2u);
    Execute(*first, "CREATE TABLE t(i INTEGER); INSERT INTO t VALUES (7)");
    first->Close();
    EXPECT_EQ(CountCalls("duckdb_close"), 0u);
    EXPECT_EQ(second->get_ConnectionCount(), 1u);
    EXPECT_EQ(QueryText(*second, "SELECT i FROM t"), "7");
    second->Close();
    EXPECT_EQ(CountCalls("duckdb_close"), 1u);
    EXPECT_EQ(second->get_ConnectionCount(), 0u);
    EXPECT_FALSE(host->IsDatabaseOpen(second->get_Key()));
}

TEST_F(DatabaseLifecycle, InMemoryDatabasesShareTheirContentUntilTheLastCloses) {
    auto first = host.Opened(":memory:");
    const auto second = host.Opened(":memory:");
    Execute(*first, "CREATE TABLE t AS SELECT 5 AS i");
    EXPECT_EQ(first->get_ConnectionCount(), 2u);
    first = nullptr;
    EXPECT_EQ(QueryText(*second, "SELECT i FROM t"), "5");
    second->Close();
    second->Open();
    EXPECT_NE(Thrown([&] { Execute(*second, "SELECT i FROM t"); }), "none");
}

TEST_F(DatabaseLifecycle, EveryConnectionGetsItsErrorsAsJson) {
    host.Created(Path());
    host.Opened(Path());
    const auto log = duckdb_faults::get_Log("duckdb_query");
    EXPECT_EQ(log, (std::vector<std::string>{"duckdb_query SET errors_as_json = true;",
                                             "duckdb_query SET errors_as_json = true;"}));
    const auto database = host.Opened(Path());
    const std::string thrown = Thrown([&] { Execute(*database, "SELECT * FROM missing"); });
    EXPECT_EQ(thrown.find("xDuckDBError 72501 [" + Path() + "] [" +
                          get_ExpectedByVersion().before_unprepared + "{\"exception_type\":\"Catalog\""),
              0u)
        << thrown;
}

TEST_F(DatabaseLifecycle, OpeningAMissingFileFailsWithoutAToken) {
    const auto database = host.Database(Path());
    EXPECT_EQ(Thrown([&] { database->Open(); }), Refusal(Path(), "File does not exist"));
    EXPECT_FALSE(database->get_IsOpen());
    EXPECT_FALSE(fs::exists(Path()));
    EXPECT_EQ(database->get_ConnectionCount(), 0u);
    EXPECT_FALSE(host->IsDatabaseOpen(database->get_Key()));
}

TEST_F(DatabaseLifecycle, OpeningInMemoryNeverAsksForAFile) {
    const auto database = host.Database(":memory:");
    EXPECT_FALSE(database->get_Exists());
    database->Open();
    EXPECT_TRUE(database->get_IsOpen());
    EXPECT_FALSE(database->get_IsReadOnly());
}

TEST_F(DatabaseLifecycle, DropIsRefusedWhileOthersAreOpen) {
    MakeFile();
    const auto first = host.Opened(Path());
    const auto second = host.Opened(Path());
    const auto third = host.Opened(Path());
    EXPECT_EQ(Thrown([&] { first->Drop(); }),
              Refusal(Path(), "Can not be dropped. 2 connections are alive."));
    EXPECT_FALSE(first->get_IsOpen());
    third->Close();
    EXPECT_EQ(Thrown([&] { first->Drop(); }),
              Refusal(Path(), "Can not be dropped. 1 connections are alive."));
    EXPECT_TRUE(fs::exists(Path()));
    EXPECT_EQ(QueryText(*second, "SELECT count(*) FROM t"), "3");
    second->Drop();
    EXPECT_FALSE(fs::exists(Path()));
}

TEST_F(DatabaseLifecycle, DropOfAMissingFilePassesTheFileErrorOn) {
    const auto database = host.Database(Path());
    EXPECT_EQ(Thrown([&] { database->Drop(); }).find("xException"), 0u);
}

TEST_F(DatabaseLifecycle, DropOfAnInMemoryDatabaseClosesIt) {
    const auto database = host.Opened(":memory:");
    database->Drop();
    EXPECT_FALSE(database->get_IsOpen());
    EXPECT_EQ(CountCalls("duckdb_close"), 1u);
}

TEST_F(DatabaseLifecycle, CreateDeletesAnExistingFile) {
    MakeFile();
    const auto database = host.Created(Path());
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM duckdb_tables()"), "0");
}

TEST_F(DatabaseLifecycle, CreateSharesTheEngineOfOthersAndDeletesNothing) {
    MakeFile();
    const auto first = host.Opened(Path());
    const auto second = host.Created(Path());
    EXPECT_EQ(QueryText(*second, "SELECT count(*) FROM t"), "3");
    EXPECT_EQ(first->get_ConnectionCount(), 2u);
}

TEST_F(DatabaseLifecycle, CreateWithoutAFormatOpensThePathDirectly) {
    host.Created(Path());
    EXPECT_EQ(duckdb_faults::get_Log("duckdb_open_ext"),
              std::vector<std::string>{"duckdb_open_ext " + Path()});
}

TEST_F(DatabaseLifecycle, CreateWithAFormatAttachesTheFileFirst) {
    const auto database = host.Database(Path("it's.db"));
    database->put_StorageVersion(S("v1.2.0"));
    database->put_BlockSize(16384);
    database->Create();
    EXPECT_EQ(duckdb_faults::get_Log("duckdb_open_ext"),
              (std::vector<std::string>{"duckdb_open_ext (null)", "duckdb_open_ext " + Path("it's.db")}));
    EXPECT_EQ(duckdb_faults::get_Log("duckdb_query").front(),
              "duckdb_query ATTACH '" + Path("it''s.db") +
                  "' ( READ_WRITE, STORAGE_VERSION 'v1.2.0', BLOCK_SIZE 16384 );");
    EXPECT_EQ(QueryText(*database, "SELECT block_size FROM pragma_database_size()"), "16384");
    EXPECT_EQ(CountCalls("duckdb_close"), 1u);
    database->Close();
    database->Open();
    EXPECT_EQ(QueryText(*database, "SELECT block_size FROM pragma_database_size()"), "16384");
}

TEST_F(DatabaseLifecycle, CreateWithOnlyOnePartOfTheFormatNamesOnlyThat) {
    auto database = host.Database(Path("a.db"));
    database->put_BlockSize(262144);
    database->Create();
    database = host.Database(Path("b.db"));
    database->put_StorageVersion(S("v1.0.0"));
    database->Create();
    const auto log = duckdb_faults::get_Log("duckdb_query ATTACH");
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0], "duckdb_query ATTACH '" + Path("a.db") + "' ( READ_WRITE, BLOCK_SIZE 262144 );");
    EXPECT_EQ(log[1], "duckdb_query ATTACH '" + Path("b.db") + "' ( READ_WRITE, STORAGE_VERSION 'v1.0.0' );");
}

TEST_F(DatabaseLifecycle, CreateInAMissingFolderReportsDuckDBsText) {
    const auto database = host.Database(Path("no/such/folder.db"));
    const std::string thrown = Thrown([&] { database->Create(); });
    EXPECT_EQ(thrown.find("xDuckDBError 72501 [" + Path("no/such/folder.db") + "] [IO Error: "), 0u)
        << thrown;
    EXPECT_FALSE(database->get_IsOpen());
    EXPECT_EQ(database->get_ConnectionCount(), 0u);
}

TEST_F(DatabaseLifecycle, ReadOnlyOpeningHasAnEngineOfItsOwn) {
    MakeFile();
    duckdb_faults::Reset();
    const auto first = host.Database(Path());
    first->put_Options(ReadOnly());
    first->Open();
    EXPECT_TRUE(first->get_IsReadOnly());
    const auto second = host.Database(Path());
    second->put_Options(ReadOnly());
    second->Open();
    EXPECT_EQ(CountCalls("duckdb_open_ext"), 2u);
    EXPECT_EQ(first->get_ConnectionCount(), 2u);
    EXPECT_NE(Thrown([&] { Execute(*first, "INSERT INTO t VALUES (9)"); }), "none");
    first->Close();
    EXPECT_FALSE(first->get_IsReadOnly());
    EXPECT_EQ(QueryText(*second, "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseLifecycle, RepeatedReadOnlyOpeningReusesTheIdleEngine) {
    MakeFile();
    const auto keeper = host.Database(Path());
    keeper->put_Options(ReadOnly());
    keeper->Open();
    duckdb_faults::Reset();
    for (int i = 0; i < 100; ++i) {
        const auto database = host.Database(Path());
        database->put_Options(ReadOnly());
        database->Open();
        EXPECT_TRUE(database->get_IsReadOnly());
        EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
    }
    EXPECT_LE(CountCalls("duckdb_open_ext"), 1u);
    EXPECT_LE(mduckdb::EngineFiles::Get().get_EngineCount(), 2u);
}

TEST_F(DatabaseLifecycle, AWritingOpenIsRefusedWhileThisProcessReadsTheFile) {
    MakeFile();
    fs::create_symlink(Path(), Path("link.db"));
    auto reader = host.Database(Path());
    reader->put_Options(ReadOnly());
    reader->Open();
    for (const char* name : {"test.db", "link.db"}) {
        const auto writer = host.Database(Path(name));
        EXPECT_EQ(Thrown([&] { writer->Open(); }),
                  "xException 99000 [Cannot open file for writing: 1 reader of this process has it open]");
        EXPECT_FALSE(writer->get_IsOpen());
        EXPECT_EQ(Thrown([&] { writer->Drop(); }),
                  Refusal(Path(name), "Can not be dropped. 1 connections are alive."));
    }
    EXPECT_EQ(Thrown([&] { host.Created(Path()); }),
              Refusal(Path(), "Cannot open file for writing: 1 reader of this process has it open"));
    EXPECT_EQ(Thrown([&] { host.Created(Path("link.db")); }),
              Refusal(Path("link.db"), "Can not be dropped. 1 connections are alive."));
    EXPECT_EQ(QueryText(*reader, "SELECT count(*) FROM t"), "3");
    reader->Close();
    Execute(*host.Opened(Path("link.db")), "INSERT INTO t VALUES (4)");
    reader->put_Options(ReadOnly());
    reader->Open();
    EXPECT_EQ(QueryText(*reader, "SELECT count(*) FROM t"), "4");
}

TEST_F(DatabaseLifecycle, AReadOnlyRequestSharesTheOpenWritingEngine) {
    MakeFile();
    const auto writer = host.Opened(Path());
    const auto reader = host.Database(Path());
    reader->put_Options(ReadOnly());
    reader->Open();
    EXPECT_FALSE(reader->get_IsReadOnly());
    EXPECT_EQ(reader->get_ConnectionCount(), 2u);
}

TEST_F(DatabaseLifecycle, AnUnwritableFileOpensReadOnly) {
    MakeFile();
    // Root may write everywhere, so a lock held by another process replaces the missing permission.
    const HeldElsewhere reader(Path(), false);
    ASSERT_EQ(reader.get_Outcome(), "ok");
    const auto database = host.Opened(Path());
    EXPECT_TRUE(database->get_IsReadOnly());
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseLifecycle, OptionsApplyToOneOpeningOnly) {
    MakeFile();
    const auto database = host.Database(Path());
    database->put_Options(ReadOnly());
    database->Open();
    EXPECT_TRUE(database->get_IsReadOnly());
    database->Close();
    database->Open();
    EXPECT_FALSE(database->get_IsReadOnly());
}

TEST_F(DatabaseLifecycle, OpenOfAnOpenDatabaseStartsOver) {
    MakeFile();
    const auto database = host.Opened(Path());
    Execute(*database, "BEGIN; INSERT INTO t VALUES (4)");
    database->Open();
    EXPECT_EQ(database->get_ConnectionCount(), 1u);
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseLifecycle, CloseOfAClosedDatabaseSucceeds) {
    const auto database = host.Database(Path());
    database->Close();
    database->Create();
    database->Close();
    database->Close();
    EXPECT_FALSE(database->get_IsOpen());
    EXPECT_EQ(database->get_ConnectionCount(), 0u);
}

TEST_F(DatabaseLifecycle, CloseRollsBackWhatWasNotCommitted) {
    MakeFile();
    auto database = host.Opened(Path());
    Execute(*database, "BEGIN; DELETE FROM t");
    database = nullptr;
    EXPECT_EQ(QueryText(*host.Opened(Path()), "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseLifecycle, ExistsReportsFilesOnly) {
    const auto database = host.Database(Path());
    EXPECT_FALSE(database->get_Exists());
    database->Create();
    EXPECT_TRUE(database->get_Exists());
    database->put_Credentials(S("token"), S(""));
    EXPECT_FALSE(database->get_Exists());
    EXPECT_FALSE(host.Database(":memory:")->get_Exists());
}

TEST_F(DatabaseLifecycle, PathIsTheTextAsPassedAndKeyThePathText) {
    fs::create_directory(Path("x"));
    const auto database = host.Database(Path("x/../test.db"));
    EXPECT_EQ(U(database->get_Path()), Path("x/../test.db"));
    EXPECT_EQ(U(database->get_Key()), Path());
}

TEST_F(DatabaseLifecycle, PathsWithQuotesAndForeignLettersWork) {
    const std::string path = Path("größe ' \" 数据库.db");
    auto database = host.Created(path);
    Execute(*database, "CREATE TABLE t AS SELECT 1 AS i");
    database = nullptr;
    EXPECT_EQ(QueryText(*host.Opened(path), "SELECT i FROM t"), "1");
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(DatabaseLifecycle, StatementsNeedAnOpenDatabase) {
    const auto database = host.Database(Path());
    EXPECT_EQ(Thrown([&] { database->CreateStatement(S("SELECT 1")); }),
              Refusal(Path(), "DuckDBDatabase is not open"));
    EXPECT_EQ(Thrown([&] { database->RemoveStatement(nullptr); }),
              Refusal(Path(), "DuckDBDatabase is not open"));
}

TEST_F(DatabaseLifecycle, AStatementOfAnotherDatabaseDoesNotBelong) {
    const auto first = host.Created(Path("a.db"));
    const auto second = host.Created(Path("b.db"));
    const auto statement = first->CreateStatement(S("SELECT 1"));
    EXPECT_EQ(Thrown([&] { second->RemoveStatement(statement.get()); }),
              Refusal(Path("b.db"), "DuckDBStatement does not belong to this database"));
    first->RemoveStatement(statement.get());
    EXPECT_EQ(Thrown([&] { first->RemoveStatement(statement.get()); }),
              Refusal(Path("a.db"), "DuckDBStatement does not belong to this database"));
}

TEST_F(DatabaseLifecycle, RemovingAnUnlistedChildDoesNothing) {
    const auto database = host.Created(":memory:");
    const auto cursor = database->SqlSelect(S("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    database->RemoveCursor(cursor.get());
    database->RemoveCursor(cursor.get());
    database->RemoveQueryResult(nullptr);
    database->Close();
    EXPECT_FALSE(database->get_IsOpen());
}

TEST_F(DatabaseLifecycle, ClosingClosesEverythingMadeFromIt) {
    const auto database = host.Created(":memory:");
    const auto statement = database->CreateStatement(S("SELECT 1"));
    statement->PrepareNext();
    const auto client = database->SqlSelect(S("SELECT 1"), nbx::mrsql::kClientCursor, nullptr);
    const auto server = database->SqlSelect(S("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    const auto result = database->SqlQuery(S("SELECT 1; SELECT 2"), nbx::mrsql::kServerCursor, nullptr);
    database->Close();
    EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
    EXPECT_NE(Thrown([&] { statement->PrepareNext(); }), "none");
    EXPECT_EQ(statement->get_Database(), nullptr);
    EXPECT_NE(Thrown([&] { server->NextRecord(); }), "none");
    EXPECT_EQ(result->get_Cursor(), nullptr);
    database->Open();
    EXPECT_EQ(QueryText(*database, "SELECT 3"), "3");
}

TEST_F(DatabaseLifecycle, ChildrenThatOutliveTheDatabaseAreHarmless) {
    auto database = host.Created(":memory:");
    const auto statement = database->CreateStatement(S("SELECT 1"));
    const auto cursor = database->SqlSelect(S("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    const auto result = database->SqlQuery(S("SELECT 1"), nbx::mrsql::kClientCursor, nullptr);
    EXPECT_EQ(database->get_RefsCount(), 1u);
    database = nullptr;
    EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
    EXPECT_EQ(cursor->get_Database(), nullptr);
}

TEST_F(DatabaseLifecycle, ClosedChildrenLeaveTheListsWhenTheyAreDestroyed) {
    const auto database = host.Created(":memory:");
    auto cursor = database->SqlSelect(S("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    cursor->Close();
    cursor = nullptr;
    auto result = database->SqlQuery(S("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    result->Close();
    result = nullptr;
    auto statement = database->CreateStatement(S("SELECT 1"));
    statement->Detach();
    statement = nullptr;
    database->Close();
    EXPECT_FALSE(database->get_IsOpen());
}

/** Makes the engine fail with an internal error: a TIME outside the day cannot become text. */
void EndEngine(nbx::mrsql::I_DuckDBDatabase& database) {
    const auto connection = dynamic_cast<mduckdb::DuckDBDatabase&>(database).get_Link()->get_Connection();
    mduckdb::PreparedHolder prepared;
    duckdb_query(*connection, "CREATE TEMP TABLE bad(t TIME)", nullptr);
    ASSERT_EQ(duckdb_prepare(*connection, "INSERT INTO bad VALUES (?)", prepared.Receive()), DuckDBSuccess);
    ASSERT_EQ(duckdb_bind_time(prepared.get(), 1, {INT64_MAX}), DuckDBSuccess);
    mduckdb::ResultHolder result;
    ASSERT_EQ(duckdb_execute_prepared(prepared.get(), result.Receive()), DuckDBSuccess);
    ASSERT_NE(duckdb_query(*connection, "SELECT t::VARCHAR FROM bad", nullptr), DuckDBSuccess);
    ASSERT_NE(duckdb_query(*connection, "SELECT 1", nullptr), DuckDBSuccess);
}

TEST_F(DatabaseLifecycle, ADeadEngineIsReplacedAtTheNextOpening) {
    MakeFile();
    const auto database = host.Opened(Path());
    Execute(*database, "INSERT INTO t VALUES (4)");
    EndEngine(*database);
    EXPECT_NE(Thrown([&] { Execute(*database, "SELECT 1"); }), "none");
    database->Close();
    database->Open();
    EXPECT_FALSE(database->get_IsReadOnly());
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "4");
}

TEST_F(DatabaseLifecycle, ADeadEngineIsReplacedWhileOthersStillHoldIt) {
    MakeFile();
    const auto first = host.Opened(Path());
    const auto second = host.Opened(Path());
    const auto third = host.Opened(Path());
    Execute(*second, "INSERT INTO t VALUES (4)");
    EndEngine(*first);
    first->Open();
    EXPECT_EQ(first->get_ConnectionCount(), 3u);
    Execute(*first, "INSERT INTO t VALUES (5)");
    EXPECT_EQ(QueryText(*first, "SELECT count(*) FROM t"), "5");
    second->Close();
    EXPECT_NE(TryOpenElsewhere(Path(), true), "ok");
    second->Open();
    Execute(*second, "INSERT INTO t VALUES (6)");
    EXPECT_EQ(CountCalls("duckdb_close"), 1u);  // of the engine that made the file
    first->Close();
    second->Close();
    EXPECT_NE(Thrown([&] { Execute(*third, "SELECT 1"); }), "none");
    third->Close();
    EXPECT_EQ(TryOpenElsewhere(Path(), true), "ok");
    EXPECT_EQ(QueryText(*host.Opened(Path()), "SELECT count(*) FROM t"), "6");
}

TEST_F(DatabaseLifecycle, AnEngineThatDiesAgainIsReplacedAgain) {
    MakeFile();
    const auto keeper = host.Opened(Path());
    for (int i = 0; i < 3; ++i) {
        const auto database = host.Opened(Path());
        Execute(*database, "INSERT INTO t VALUES (0)");
        EndEngine(*database);
    }
    keeper->Close();
    EXPECT_EQ(QueryText(*host.Opened(Path()), "SELECT count(*) FROM t"), "6");
}

TEST_F(DatabaseLifecycle, CreateReplacesADeadEngineThatOthersHold) {
    MakeFile();
    const auto first = host.Opened(Path());
    const auto second = host.Opened(Path());
    EndEngine(*first);
    second->Create();
    EXPECT_EQ(QueryText(*second, "SELECT count(*) FROM t"), "3");
    EXPECT_EQ(second->get_ConnectionCount(), 2u);
}

}  // namespace
