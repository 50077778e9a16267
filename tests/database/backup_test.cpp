#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "database_test_base.h"
#include "nbx/engine_lock.h"
#include "nbx/hooks.h"
#include "support/environment.h"
#include "support/expected_by_version.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

nbx::smart_ptr<nbx::I_Location> g_server_folder;

class DatabaseBackup : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
        fs::create_directory(Path("backups"));
    }
    void TearDown() override {
        g_server_folder = nullptr;
        DatabaseTest::TearDown();
    }
    static Lines List(const std::string& path) {
        Lines names;
        for (const auto& entry : fs::directory_iterator(path)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }
    /** The one backup in a folder. */
    static std::string OnlyIn(const std::string& path) {
        const Lines names = List(path);
        EXPECT_EQ(names.size(), 1u);
        return names.empty() ? "" : path + "/" + names[0];
    }
    static std::string Read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /** Backs up the database, restores it to another file, and returns that one, open. */
    Database RoundTrip(nbx::mrsql::I_DuckDBDatabase& database) {
        database.Backup(Location(Path("backups")));
        const auto restored =
            host->RestoreDatabase(Location(Path("restored.db")), Location(OnlyIn(Path("backups"))));
        EXPECT_FALSE(restored->get_IsOpen());
        restored->Open();
        return restored;
    }
    /** Every row of a query, as text. */
    static std::string Rows(nbx::mrsql::I_DuckDBDatabase& database, const std::string& select) {
        return QueryText(database,
                         "SELECT coalesce(string_agg(q::VARCHAR, chr(10) ORDER BY q::VARCHAR), '') FROM (" +
                             select + ") q");
    }
    /** A database whose export takes long enough to be interrupted. */
    Database MakeLarge() {
        auto database = host.Created(Path());
        const int rows = NumberFromEnvironment("MDUCKDB_TEST_BACKUP_ROWS", 150'000);
        Execute(
            *database,
            std::string(
                "CREATE TABLE t AS SELECT range AS i, md5(range::VARCHAR) AS x, md5(x) AS y FROM range(") +
                std::to_string(rows) + ")");
        return database;
    }
};

TEST_F(DatabaseBackup, ExportsWithTheFixedStatementIntoANewFolderWithAMarker) {
    MakeFile();
    const auto database = host.Opened(Path());
    database->Backup(Location(Path("backups")));
    const std::string backup = OnlyIn(Path("backups"));
    EXPECT_EQ(duckdb_faults::get_Log("duckdb_prepare EXPORT"),
              Lines{"duckdb_prepare EXPORT DATABASE '" + backup +
                    "' ( FORMAT PARQUET, COMPRESSION ZSTD, ROW_GROUP_SIZE 100_000, PARQUET_VERSION V2 )"});
    EXPECT_EQ(Read(backup + "/test.db." + nbx::gmDuckDB_backup_sfx), nbx::gmDuckDB_backup_sfx);
    EXPECT_TRUE(fs::exists(backup + "/schema.sql"));
    EXPECT_TRUE(fs::exists(backup + "/load.sql"));
    EXPECT_TRUE(fs::exists(backup + "/t.parquet"));
    EXPECT_TRUE(database->get_IsOpen());
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseBackup, OfAClosedDatabaseIsRefused) {
    const auto database = host.Database(Path());
    EXPECT_EQ(Thrown([&] { database->Backup(Location(Path("backups"))); }),
              Refusal(Path(), "DuckDBDatabase is not open"));
    EXPECT_TRUE(List(Path("backups")).empty());
}

TEST_F(DatabaseBackup, TheServersFolderReplacesTheCallers) {
    const auto database = host.Created(Path());
    fs::create_directory(Path("server"));
    g_server_folder = Location(Path("server"));
    nbx::mrsql::gServerBackupLocation = [] { return g_server_folder; };
    database->Backup(Location(Path("backups")));
    EXPECT_TRUE(List(Path("backups")).empty());
    EXPECT_EQ(List(Path("server")).size(), 1u);
}

TEST_F(DatabaseBackup, WithoutAFolderIsWrittenNextToTheDatabase) {
    const auto database = host.Created(Path());
    database->Backup(nullptr);
    EXPECT_TRUE(fs::exists(OnlyIn(Path("Backup")) + "/schema.sql"));
}

TEST_F(DatabaseBackup, OfAnInMemoryDatabaseNeedsAFolder) {
    const auto database = host.Opened(":memory:");
    EXPECT_EQ(Thrown([&] { database->Backup(nullptr); }),
              Refusal(":memory:", "DuckDBDatabase backup folder is not available"));
    Execute(*database, "CREATE TABLE t AS SELECT 1 AS i");
    EXPECT_EQ(Rows(*RoundTrip(*database), "FROM t"), "{'i': 1}");
}

TEST_F(DatabaseBackup, AMissingFolderIsRefusedAndNothingIsWritten) {
    const auto database = host.Created(Path());
    const std::string refusal = Refusal(Path(), "DuckDBDatabase backup folder is not available");
    EXPECT_EQ(Thrown([&] { database->Backup(Location(Path("missing"))); }), refusal);
    EXPECT_FALSE(fs::exists(Path("missing")));
    EXPECT_EQ(Thrown([&] { database->Backup(Location(":memory:")); }), refusal);
    std::ofstream(Path("file")) << "x";
    EXPECT_EQ(Thrown([&] { database->Backup(Location(Path("file"))); }), refusal);
    EXPECT_TRUE(List(Path("backups")).empty());
}

TEST_F(DatabaseBackup, AFailedExportReportsDuckDBsTextAndLeavesWhatItWrote) {
    MakeFile();
    const auto database = host.Opened(Path());
    // A folder where the export writes a file.
    nbx::mrsql::gCreateBackupLocation = [](const nbx::smart_ptr<nbx::I_Location>& chosen) {
        auto location = chosen->MakeChild(S("backup"));
        fs::create_directories(U(location->get_PathText()) + "/schema.sql");
        return location;
    };
    const std::string thrown = Thrown([&] { database->Backup(Location(Path("backups"))); });
    EXPECT_EQ(thrown.find("xDuckDBError 72501 [" + Path() + "] [{\"exception_type\":\"IO\""), 0u) << thrown;
    EXPECT_TRUE(fs::exists(Path("backups/backup/test.db.") + nbx::gmDuckDB_backup_sfx));
    EXPECT_FALSE(nbx::gIsGlobalLockTaken.get());
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseBackup, AFailedExportOverAnEarlierOneLeavesNoMixtureThatCanBeRestored) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE a AS SELECT 1 AS i; CREATE TABLE b AS SELECT 1 AS i");
    nbx::mrsql::gCreateBackupLocation = [](const nbx::smart_ptr<nbx::I_Location>& chosen) {
        auto location = chosen->MakeChild(S("backup"));
        fs::create_directories(U(location->get_PathText()));
        return location;
    };
    database->Backup(Location(Path("backups")));
    const std::string second = Path("backups/backup/b.parquet");
    fs::rename(second, Path("first"));
    fs::create_directory(second);
    Execute(*database, "UPDATE a SET i = 2; UPDATE b SET i = 2");
    EXPECT_NE(Thrown([&] { database->Backup(Location(Path("backups"))); }), "none");
    // As if only the first file had been written.
    fs::remove(second);
    fs::rename(Path("first"), second);
    const auto restore = [&] {
        host->RestoreDatabase(Location(Path("restored.db")), Location(Path("backups/backup")));
    };
    const std::string thrown = Thrown(restore);
    EXPECT_NE(thrown.find("load.sql"), std::string::npos) << thrown;
    database->Backup(Location(Path("backups")));
    EXPECT_EQ(Thrown(restore), "none");
    EXPECT_EQ(QueryText(*host.Opened(Path("restored.db")), "SELECT a.i + b.i FROM a, b"), "4");
}

TEST_F(DatabaseBackup, AFailureWithoutATextHasTheFixedOne) {
    const auto database = host.Created(Path());
    duckdb_faults::FailCall("duckdb_execute_pending", 1);
    EXPECT_EQ(Thrown([&] { database->Backup(Location(Path("backups"))); }),
              Refusal(Path(), "Unknown DuckDB backup error"));
}

TEST_F(DatabaseBackup, RunsWithoutTheEngineLock) {
    const auto database = MakeLarge();
    std::atomic<bool> is_over = false;
    int entries = 0;
    std::thread exporter([&] {
        database->Backup(Location(Path("backups")));
        is_over = true;
    });
    const auto other = host.Created(":memory:");
    while (List(Path("backups")).empty()) {
        std::this_thread::sleep_for(1ms);
    }
    for (; !is_over; ++entries) {
        EXPECT_EQ(QueryText(*other, "SELECT 1"), "1");
    }
    exporter.join();
    EXPECT_GT(entries, 1);
}

TEST_F(DatabaseBackup, LetsStatementsOnTheSameObjectRunMeanwhile) {
    const auto database = MakeLarge();
    std::atomic<bool> is_over = false;
    std::string thrown = "not run";
    std::thread exporter([&] {
        thrown = Thrown([&] { database->Backup(Location(Path("backups"))); });
        is_over = true;
    });
    while (List(Path("backups")).empty()) {
        std::this_thread::sleep_for(1ms);
    }
    int answers = 0;
    for (; !is_over; ++answers) {
        EXPECT_EQ(QueryText(*database, "SELECT 1"), "1");
    }
    exporter.join();
    EXPECT_EQ(thrown, "none");
    EXPECT_GT(answers, 2) << "they waited for the end of the export";
}

TEST_F(DatabaseBackup, HoldsWhatIsCommittedWhenItBegins) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t AS SELECT 1 AS i");
    Execute(*database, "ATTACH ':memory:' AS other; USE other");
    Execute(*database, "BEGIN; INSERT INTO test.t VALUES (2)");
    const auto restored = RoundTrip(*database);
    EXPECT_EQ(QueryText(*restored, "SELECT string_agg(i, ',') FROM t"), "1");
    Execute(*database, "COMMIT");
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM test.t"), "2");
}

TEST_F(DatabaseBackup, ClosingWaitsForTheExportWithoutHoldingTheEngineLock) {
    auto database = MakeLarge();
    const auto other = host.Created(":memory:");
    std::atomic<bool> is_over = false;
    std::string thrown = "not run";
    std::thread exporter([&] { thrown = Thrown([&] { database->Backup(Location(Path("backups"))); }); });
    while (duckdb_faults::CountCalls("duckdb_execute_pending") < 2) {
        std::this_thread::sleep_for(1ms);
    }
    std::thread closer([&] {
        database->Close();
        is_over = true;
    });
    int entries = 0;
    for (; !is_over; ++entries) {
        EXPECT_EQ(QueryText(*other, "SELECT 1"), "1");
    }
    closer.join();
    exporter.join();
    EXPECT_EQ(thrown, "none");
    EXPECT_GT(entries, 1);
    EXPECT_FALSE(database->get_IsOpen());
    EXPECT_TRUE(fs::exists(OnlyIn(Path("backups")) + "/load.sql"));
    const auto restored =
        host->RestoreDatabase(Location(Path("restored.db")), Location(OnlyIn(Path("backups"))));
    database->Open();
    restored->Open();
    const std::string content = "SELECT count(*) || ' ' || sum(hash(t)) FROM t";
    EXPECT_EQ(QueryText(*restored, content), QueryText(*database, content));
}

TEST_F(DatabaseBackup, InterruptStopsItAndClosingContinues) {
    const auto database = MakeLarge();
    std::string thrown = "not run";
    std::thread exporter([&] { thrown = Thrown([&] { database->Backup(Location(Path("backups"))); }); });
    while (duckdb_faults::CountCalls("duckdb_execute_pending") < 2) {
        std::this_thread::sleep_for(1ms);
    }
    database->Interrupt();
    database->Close();
    exporter.join();
    EXPECT_EQ(thrown, "xInterruptError 57501");
    EXPECT_TRUE(fs::exists(OnlyIn(Path("backups")) + "/test.db." + nbx::gmDuckDB_backup_sfx));
}

TEST_F(DatabaseBackup, PathsWithQuotesAndForeignLettersWork) {
    const std::string path = Path("größe's 数据.db");
    const std::string folder_path = Path("o'hara größe");
    fs::create_directory(folder_path);
    const auto database = host.Created(path);
    Execute(*database, "CREATE TABLE t AS SELECT 7 AS i");
    database->Backup(Location(folder_path));
    const auto restored =
        host->RestoreDatabase(Location(Path("re'stored.db")), Location(OnlyIn(folder_path)));
    restored->Open();
    EXPECT_EQ(QueryText(*restored, "SELECT i FROM t"), "7");
}

TEST_F(DatabaseBackup, RestoreReplacesAnExistingFile) {
    MakeFile();
    host.Opened(Path())->Backup(Location(Path("backups")));
    Execute(*host.Opened(Path()), "DELETE FROM t; CREATE TABLE other(i INTEGER)");
    const auto restored = host->RestoreDatabase(Location(Path()), Location(OnlyIn(Path("backups"))));
    EXPECT_EQ(restored->get_RefsCount(), 1u);
    restored->Open();
    EXPECT_EQ(QueryText(*restored, "SELECT count(*) FROM t"), "3");
    EXPECT_EQ(QueryText(*restored, "SELECT count(*) FROM duckdb_tables()"), "1");
}

TEST_F(DatabaseBackup, RestoreOverAnOpenFileIsRefusedAsADrop) {
    MakeFile();
    const auto database = host.Opened(Path());
    database->Backup(Location(Path("backups")));
    EXPECT_EQ(Thrown([&] { host->RestoreDatabase(Location(Path()), Location(OnlyIn(Path("backups")))); }),
              Refusal(Path(), "Can not be dropped. 1 connections are alive."));
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseBackup, RestoreOfABackupThatWasKilledBeforeItsLastFileWasWrittenIsRefused) {
    MakeFile();
    host.Opened(Path())->Backup(Location(Path("backups")));
    const std::string backup = OnlyIn(Path("backups"));
    fs::resize_file(backup + "/load.sql", 0);
    for (const std::string& target : {Path(), Path("new.db"), std::string(":memory:")}) {
        EXPECT_EQ(Thrown([&] { host->RestoreDatabase(Location(target), Location(backup)); }),
                  Refusal(target,
                          "The backup is incomplete: its load.sql is empty, and its schema.sql has tables"));
    }
    EXPECT_FALSE(fs::exists(Path("new.db")));
    EXPECT_EQ(QueryText(*host.Opened(Path()), "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseBackup, OfADatabaseWithoutTablesCanBeRestored) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE VIEW v AS SELECT 'CREATE TABLE ' AS text");
    database->Backup(Location(Path("backups")));
    const std::string backup = OnlyIn(Path("backups"));
    EXPECT_EQ(fs::file_size(backup + "/load.sql"), 0u);
    const auto restored = host->RestoreDatabase(Location(Path("new.db")), Location(backup));
    restored->Open();
    EXPECT_EQ(QueryText(*restored, "SELECT * FROM v"), "CREATE TABLE ");
}

TEST_F(DatabaseBackup, RestoreOfAFolderThatIsNotABackupReportsTheErrorAndLeavesANewFile) {
    const std::string thrown =
        Thrown([&] { host->RestoreDatabase(Location(Path()), Location(Path("backups"))); });
    EXPECT_EQ(thrown.find("xDuckDBError 72501 [" + Path() + "] [" +
                          get_ExpectedByVersion().before_unexpanded + "{\"exception_type\":\"IO\""),
              0u)
        << thrown;
    EXPECT_TRUE(fs::exists(Path()));
    EXPECT_EQ(TryOpenElsewhere(Path(), true), "ok");
}

/** The columns of `test_all_types` that DuckDB 1.5 exports and cannot import again, and that DuckDB 2.0 does
   not store in a file for DuckDB 1. */
bool IsBeyondImport(const std::string& column) {
    return column == "struct_of_fixed_array" || column == "empty_struct" || column == "tuple";
}

/** Types for which Parquet keeps less: the moment in UTC of a TIME WITH TIME ZONE, the milliseconds of an
    INTERVAL. */
bool IsRounded(const std::string& column) {
    return column == "time_tz" || column == "interval";
}

TEST_F(DatabaseBackup, EveryTypeThatDuckDBCanImportIsRestored) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE VIEW everything AS FROM test_all_types(use_large_enum = false)");
    std::vector<std::string> columns;
    const std::string names = QueryText(
        *database,
        "SELECT string_agg(column_name, ' ') FROM duckdb_columns() WHERE table_name = 'everything'");
    std::istringstream words(names);
    for (std::string column; words >> column;) {
        if (!IsBeyondImport(column)) {
            columns.push_back(column);
            Execute(*database,
                    "CREATE TABLE t_" + column + " AS SELECT \"" + column + "\" AS c FROM everything");
        }
    }
    ASSERT_GT(columns.size(), 40u);
    Execute(*database, "DROP VIEW everything");
    const auto restored = RoundTrip(*database);
    const std::string types = "SELECT table_name, data_type FROM duckdb_columns()";
    EXPECT_EQ(Rows(*restored, types), Rows(*database, types));
    for (const std::string& column : columns) {
        if (IsRounded(column)) {
            continue;
        }
        const std::string select = "SELECT c FROM t_" + column;
        EXPECT_EQ(Rows(*restored, select), Rows(*database, select)) << column;
    }
}

TEST_F(DatabaseBackup, SchemasViewsMacrosSequencesIndexesConstraintsAndEnumsAreRestored) {
    const auto database = host.Created(Path());
    Execute(
        *database,
        "CREATE SCHEMA \"my schema\";"
        "CREATE TYPE mood AS ENUM ('sad', 'ok', 'fine');"
        "CREATE SEQUENCE numbers START 10 INCREMENT 5;"
        "CREATE TABLE parent(i INTEGER PRIMARY KEY, m mood DEFAULT 'ok', n BIGINT DEFAULT nextval('numbers'),"
        "  twice INTEGER GENERATED ALWAYS AS (i * 2) VIRTUAL, CHECK (i > 0));"
        "CREATE TABLE child(i INTEGER REFERENCES parent(i));"
        "CREATE TABLE \"my schema\".\"a \"\"table\"\"\"(v VARCHAR NOT NULL);"
        "CREATE INDEX by_mood ON parent(m);"
        "CREATE VIEW sums AS SELECT sum(i) AS s FROM parent;"
        "CREATE MACRO plus(a, b) AS a + b;"
        "CREATE MACRO rows_of(n) AS TABLE SELECT * FROM range(n);"
        "INSERT INTO parent(i) VALUES (1), (2);"
        "INSERT INTO child VALUES (2);"
        "INSERT INTO \"my schema\".\"a \"\"table\"\"\" VALUES ('x')");
    const auto restored = RoundTrip(*database);
    EXPECT_EQ(Rows(*restored, "FROM parent"), Rows(*database, "FROM parent"));
    EXPECT_EQ(QueryText(*restored, "SELECT s FROM sums"), "3");
    EXPECT_EQ(QueryText(*restored, "SELECT plus(2, 3)"), "5");
    EXPECT_EQ(QueryText(*restored, "SELECT count(*) FROM rows_of(4)"), "4");
    EXPECT_EQ(QueryText(*restored, "SELECT v FROM \"my schema\".\"a \"\"table\"\"\""), "x");
    EXPECT_EQ(QueryText(*restored, "SELECT nextval('numbers')"),
              QueryText(*database, "SELECT nextval('numbers')"));
    EXPECT_EQ(QueryText(*restored, "SELECT count(*) FROM duckdb_indexes()"), "1");
    EXPECT_NE(Thrown([&] { Execute(*restored, "INSERT INTO parent(i) VALUES (1)"); }), "none");
    EXPECT_NE(Thrown([&] { Execute(*restored, "INSERT INTO parent(i) VALUES (-1)"); }), "none");
    EXPECT_NE(Thrown([&] { Execute(*restored, "INSERT INTO child VALUES (99)"); }), "none");
    EXPECT_EQ(QueryText(*restored, "SELECT twice FROM parent WHERE i = 2"), "4");
}

}  // namespace
