#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "database_test_base.h"
#include "procedures/handlers.h"
#include "support/expected_by_version.h"
#include "support/fake_host.h"
#include "support/second_module.h"

// A file is the same file under every name, for every user and after every failure: no committed row is lost,
// and no file in use is deleted or replaced.

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class OneFile : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        fs::create_directory(Path("sub"));
        fs::create_directory_symlink("sub", Path("folder_link"));
        MakeFile("sub/test.db");
        real = Path("sub/test.db");
        fs::create_symlink("sub/test.db", Path("link.db"));
        fs::create_hard_link(real, Path("hard.db"));
        aliases = {Path("link.db"), Path("hard.db"), Path("folder_link/test.db")};
    }
    /** A backup of a database with the table t of the numbers 1 to 5. */
    std::string MakeBackup() {
        const auto database = host.Created(Path("source.db"));
        Execute(*database, "CREATE TABLE t AS SELECT range + 1 AS i FROM range(5)");
        fs::create_directory(Path("backups"));
        database->Backup(Location(Path("backups")));
        return fs::directory_iterator(Path("backups"))->path().string();
    }
    std::string Restore(const std::string& path, const std::string& backup) {
        return Thrown([&] { host->RestoreDatabase(Location(path), Location(backup)); });
    }
    static std::string CountRows(nbx::mrsql::I_DuckDBDatabase& database) {
        return QueryText(database, "SELECT count(*) FROM t");
    }
    std::string CountRowsOf(const std::string& path) const { return CountRows(*host.Opened(path)); }
    static fs::perms RightsOf(const std::string& path) { return fs::status(path).permissions(); }

    std::string real;
    std::vector<std::string> aliases;
};

TEST_F(OneFile, OpenUnderAnyNameIsNeitherDroppedNorCreatedNorRestoredUnderAnother) {
    const std::string backup = MakeBackup();
    std::vector<std::string> names = aliases;
    names.push_back(real);
    for (const std::string& name : names) {
        const auto database = host.Opened(name);
        Execute(*database, "INSERT INTO t VALUES (9)");
        const std::string rows = CountRows(*database);
        for (const std::string& other : names) {
            const std::string refusal = Refusal(other, "Can not be dropped. 1 connections are alive.");
            EXPECT_EQ(Thrown([&] { host.Database(other)->Drop(); }), refusal) << name;
            EXPECT_EQ(Restore(other, backup), refusal) << name;
            if (other != name) {
                EXPECT_EQ(Thrown([&] { host.Created(other); }), refusal) << name;
            }
            EXPECT_THAT(TryOpenElsewhere(other, true), HasSubstr("lock")) << name << " " << other;
        }
        Execute(*database, "INSERT INTO t VALUES (9)");
        database->Close();
        EXPECT_EQ(std::to_string(std::stoi(rows) + 1), CountRowsOf(real)) << name;
    }
}

TEST_F(OneFile, WritersUnderDifferentNamesShareOneEngineAndLoseNoRow) {
    const auto first = host.Opened(real);
    for (const std::string& alias : aliases) {
        const auto second = host.Opened(alias);
        EXPECT_FALSE(second->get_IsReadOnly());
        EXPECT_EQ(second->get_ConnectionCount(), 1u);
        EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 1u);
        Execute(*second, "INSERT INTO t VALUES (1)");
        Execute(*first, "INSERT INTO t VALUES (2)");
        second->Close();
        EXPECT_THAT(TryOpenElsewhere(real, true), HasSubstr("lock")) << alias;
    }
    first->Close();
    EXPECT_EQ(CountRowsOf(real), "9");
}

TEST_F(OneFile, OpenInAnotherProcessIsNotDeletedAndTheHolderIsNamed) {
    const std::string backup = MakeBackup();
    for (const bool is_writer : {true, false}) {
        const HeldElsewhere holder(real, is_writer);
        ASSERT_EQ(holder.get_Outcome(), "ok");
        const auto named =
            AllOf(StartsWith("xDuckDBError 72501 ["), HasSubstr("] [Can not be dropped. "),
                  HasSubstr("duckdb_peer (process " + std::to_string(holder.get_Process()) + ")"));
        for (const std::string& name : {real, aliases[0], aliases[1], aliases[2]}) {
            EXPECT_THAT(Thrown([&] { host.Database(name)->Drop(); }), named);
            EXPECT_THAT(Thrown([&] { host.Created(name); }), named);
            EXPECT_THAT(Restore(name, backup), named);
            EXPECT_TRUE(fs::exists(name));
        }
        if (is_writer) {
            EXPECT_THAT(Thrown([&] { host.Opened(real); }),
                        AllOf(HasSubstr("duckdb_peer"), HasSubstr(std::to_string(holder.get_Process()))));
        }
    }
    EXPECT_EQ(CountRowsOf(real), "3");
    EXPECT_FALSE(fs::exists(Path("sub/test.db.wal")));
}

TEST_F(OneFile, TwoModulesShareOneEngineAndLoseNoRow) {
    {
        const SecondModule module;
        const auto first = host.Opened(real);
        const auto second = module->CreateDatabase(Location(aliases[0]));
        second->Open();
        for (int i = 0; i < 50; ++i) {
            Execute(*first, "INSERT INTO t VALUES (1)");
            Execute(*second, "INSERT INTO t VALUES (2)");
        }
        EXPECT_EQ(Thrown([&] { module->CreateDatabase(Location(real))->Drop(); }),
                  Refusal(real, "Can not be dropped. 2 connections are alive."));
        first->Close();
        EXPECT_THAT(TryOpenElsewhere(real, true), HasSubstr("lock"));
        Execute(*second, "INSERT INTO t VALUES (3)");
        second->Close();
    }
    EXPECT_EQ(TryOpenElsewhere(real, true), "ok");
    // One module closes handles that the other opened, so this program's counts do not match.
    duckdb_faults::Reset();
    EXPECT_EQ(CountRowsOf(real), "104");
}

TEST_F(OneFile, AProbeOfAnOpenFileKeepsTheLock) {
    std::atomic<bool> is_done{false};
    std::thread prober([&] {
        while (!is_done) {
            EXPECT_TRUE(host->IsDuckDBFile(Location(real)));
        }
    });
    int unlocked = 0;
    int failed = 0;
    for (int i = 0; i < 40; ++i) {
        const std::string thrown = Thrown([&] {
            const auto database = host.Opened(real);
            unlocked += TryOpenElsewhere(real, true) == "ok" ? 1 : 0;
        });
        failed += thrown == "none" ? 0 : 1;
    }
    is_done = true;
    prober.join();
    EXPECT_EQ(unlocked, 0);
    EXPECT_EQ(failed, 0);
}

TEST_F(OneFile, AnOpenFileIsProbedByItsContent) {
    std::ofstream(Path("rows.csv")) << "a,b\n1,2\n3,4\n5,6\n";
    const auto rows = host.Opened(Path("rows.csv"));
    EXPECT_FALSE(host->IsDuckDBFile(Location(Path("rows.csv"))));
    const auto database = host.Opened(real);
    EXPECT_TRUE(host->IsDuckDBFile(Location(aliases[0])));
    EXPECT_THAT(TryOpenElsewhere(real, true), HasSubstr("lock"));
}

TEST_F(OneFile, OnlyADatabaseOrAnEmptyFileIsDeleted) {
    const std::string backup = MakeBackup();
    std::ofstream(Path("notes.txt")) << "Not a database at all.";
    const std::string refusal =
        Refusal(Path("notes.txt"), "Can not be dropped. The file is not a DuckDB database.");
    EXPECT_EQ(Thrown([&] { host.Database(Path("notes.txt"))->Drop(); }), refusal);
    EXPECT_EQ(Thrown([&] { host.Created(Path("notes.txt")); }), refusal);
    EXPECT_EQ(Restore(Path("notes.txt"), backup), refusal);
    EXPECT_EQ(fs::file_size(Path("notes.txt")), 22u);
    std::ofstream(Path("empty.db")).close();
    Execute(*host.Created(Path("empty.db")), "CREATE TABLE t(i INTEGER)");
    std::ofstream(Path("empty2.db")).close();
    EXPECT_EQ(Restore(Path("empty2.db"), backup), "none");
    EXPECT_EQ(CountRowsOf(Path("empty2.db")), "5");
}

TEST_F(OneFile, CreateReportsWhyTheOldFileCannotBeDeletedAndKeepsIt) {
    fs::create_directory(Path("folder.db"));
    EXPECT_THAT(Thrown([&] { host.Created(Path("folder.db")); }), StartsWith("xException"));
    duckdb_database engine = nullptr;
    duckdb_connection connection = nullptr;
    ASSERT_EQ(duckdb_open(nullptr, &engine), DuckDBSuccess);
    ASSERT_EQ(duckdb_connect(engine, &connection), DuckDBSuccess);
    ASSERT_EQ(duckdb_query(connection, ("ATTACH '" + real + "' AS c").c_str(), nullptr), DuckDBSuccess);
    const auto attached = HasSubstr("by other means");
    EXPECT_THAT(Thrown([&] { host.Created(real); }), attached);
    EXPECT_THAT(Thrown([&] { host.Opened(aliases[0]); }), attached);
    EXPECT_THAT(Thrown([&] { host.Database(aliases[1])->Drop(); }), attached);
    EXPECT_THAT(Restore(real, MakeBackup()), attached);
    EXPECT_TRUE(host->IsDuckDBFile(Location(real)));
    {
        mduckdb::test::FakeHost caller;
        EXPECT_EQ(caller.Call<mduckdb::FetchDuckDB>({caller.Text(real), caller.Text("t")}), nullptr);
        EXPECT_THAT(caller.reports.at(0), attached);
    }
    EXPECT_THAT(TryOpenElsewhere(real, true), HasSubstr("lock"));
    ASSERT_EQ(duckdb_query(connection, "INSERT INTO c.t VALUES (4)", nullptr), DuckDBSuccess);
    duckdb_disconnect(&connection);
    duckdb_close(&engine);
    EXPECT_EQ(CountRowsOf(real), "4");
}

TEST_F(OneFile, DropDeletesTheLogAndTheFileThatALinkPointsTo) {
    for (const char* ending : {".wal", ".wal.checkpoint", ".wal.recovery"}) {
        std::ofstream(real + ending) << "log";
    }
    host.Database(Path("link.db"))->Drop();
    EXPECT_FALSE(fs::exists(real));
    EXPECT_TRUE(fs::is_symlink(Path("link.db")));
    for (const char* ending : {".wal", ".wal.checkpoint", ".wal.recovery"}) {
        EXPECT_FALSE(fs::exists(real + ending)) << ending;
    }
    EXPECT_EQ(CountRowsOf(Path("hard.db")), "3");
    Execute(*host.Created(Path("link.db")), "CREATE TABLE t(i INTEGER)");
    EXPECT_EQ(CountRowsOf(real), "0");
}

TEST_F(OneFile, ACursorOfAProcedureIsAUserOfTheEngine) {
    mduckdb::test::FakeHost caller;
    auto database = host.Opened(real);
    ASSERT_NE(caller.Call<mduckdb::FetchDuckDB>({caller.Text(aliases[0]), caller.Text("t")}), nullptr);
    EXPECT_EQ(database->get_ConnectionCount(), 1u);
    database->Close();
    EXPECT_THAT(TryOpenElsewhere(real, true), HasSubstr("lock"));
    EXPECT_EQ(Thrown([&] { database->Drop(); }),
              Refusal(real, "Can not be dropped. 1 connections are alive."));
    EXPECT_EQ(Thrown([&] { database->Create(); }),
              Refusal(real, "Can not be dropped. 1 connections are alive."));
    database->Open();
    EXPECT_FALSE(database->get_IsReadOnly());
    EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 1u);
    database->Close();
    caller.CloseCursor();
    EXPECT_EQ(TryOpenElsewhere(real, true), "ok");
}

TEST_F(OneFile, OptionsSetOnAnOpenDatabaseApplyToTheNextOpen) {
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.read_write = false;
    const auto database = host.Opened(real);
    database->put_Options(options);
    database->Open();
    EXPECT_TRUE(database->get_IsReadOnly());
    database->Open();
    EXPECT_FALSE(database->get_IsReadOnly());
}

TEST_F(OneFile, AFolderOptionWithANulInItIsRefused) {
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.temp_directory = S(std::string("sub\0x", 5));
    const auto database = host.Database(real);
    database->put_Options(options);
    EXPECT_EQ(Thrown([&] { database->Open(); }),
              "xException 99000 [The value of temp_directory must not contain NUL characters]");
}

TEST_F(OneFile, RestoreKeepsTheRightsAndTheLinkAndIncludesTheLog) {
    const std::string backup = MakeBackup();
    fs::permissions(real, fs::perms(0600));
    {
        // A killed process leaves its log.
        SecondProcess writer({COMMIT_WRITER, real});
        ASSERT_NE(writer.ReadLine(), "");
        writer.Kill();
    }
    ASSERT_TRUE(fs::exists(real + ".wal"));
    EXPECT_EQ(Restore(Path("link.db"), backup), "none");
    EXPECT_EQ(RightsOf(real), fs::perms(0600));
    EXPECT_TRUE(fs::is_symlink(Path("link.db")));
    EXPECT_FALSE(fs::exists(real + ".wal"));
    EXPECT_EQ(CountRowsOf(Path("folder_link/test.db")), "5");
    EXPECT_EQ(QueryText(*host.Opened(real), "SELECT count(*) FROM duckdb_tables()"), "1");
    // The hard link keeps the old file, which by then contains its log.
    EXPECT_EQ(QueryText(*host.Opened(Path("hard.db")), "SELECT count(*) > 0 FROM r"), "true");
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("sub")), fs::directory_iterator()), 1);
}

TEST_F(OneFile, RestoreKeepsTheNameThatViewsAndMacrosContain) {
    Execute(*host.Opened(real),
            "CREATE VIEW v AS SELECT * FROM test.main.t;"
            "CREATE MACRO m() AS (SELECT count(*) FROM test.main.t)");
    fs::create_directory(Path("backups"));
    host.Opened(real)->Backup(Location(Path("backups")));
    EXPECT_EQ(Restore(real, fs::directory_iterator(Path("backups"))->path()), "none");
    EXPECT_EQ(QueryText(*host.Opened(real), "SELECT count(*) FROM v"), CountRowsOf(real));
    EXPECT_EQ(QueryText(*host.Opened(real), "SELECT m()"), CountRowsOf(real));
}

TEST_F(OneFile, RestoreKeepsTheOwner) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "Only root can change the owner of a file";
    }
    const std::string backup = MakeBackup();
    ASSERT_EQ(chown(real.c_str(), 1234, 2345), 0);
    EXPECT_EQ(Restore(real, backup), "none");
    struct stat info {};
    ASSERT_EQ(stat(real.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 1234u);
    EXPECT_EQ(info.st_gid, 2345u);
    EXPECT_EQ(CountRowsOf(real), "5");
}

TEST_F(OneFile, AFailedRestoreLeavesTheOldDatabaseUnchanged) {
    fs::create_directory(Path("nothing"));
    EXPECT_THAT(Restore(real, Path("nothing")),
                StartsWith("xDuckDBError 72501 [" + real + "] [" + get_ExpectedByVersion().before_unexpanded +
                           "{\"exception_type\":\"IO\""));
    EXPECT_EQ(CountRowsOf(real), "3");
    const std::string backup = MakeBackup();
    for (const auto& entry : fs::directory_iterator(backup)) {
        if (entry.path().extension() == ".parquet") {
            fs::resize_file(entry.path(), fs::file_size(entry.path()) / 2);
        }
    }
    EXPECT_NE(Restore(real, backup), "none");
    EXPECT_EQ(CountRowsOf(real), "3");
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("sub")), fs::directory_iterator()), 1);
}

TEST_F(OneFile, ALogThatCannotBeReadIsKeptWithItsFile) {
    const std::string backup = MakeBackup();
    std::ofstream(real, std::ios::in).seekp(4096) << "damaged";
    fs::resize_file(real, 5000);
    std::ofstream(real + ".wal") << "log";
    testing::internal::CaptureStderr();
    EXPECT_EQ(Restore(real, backup), "none");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(real + ".unreadable"));
    EXPECT_EQ(fs::file_size(real + ".unreadable"), 5000u);
    EXPECT_EQ(fs::file_size(real + ".unreadable.wal"), 3u);
    EXPECT_EQ(CountRowsOf(real), "5");
}

TEST_F(OneFile, BackupsHaveNoMoreAccessRightsThanTheDatabase) {
    fs::permissions(real, fs::perms(0600));
    fs::create_directory(Path("backups"));
    host.Opened(real)->Backup(Location(Path("backups")));
    const fs::path backup = fs::directory_iterator(Path("backups"))->path();
    EXPECT_EQ(RightsOf(backup), fs::perms(0700));
    for (const auto& entry : fs::directory_iterator(backup)) {
        EXPECT_EQ(RightsOf(entry.path()), fs::perms(0600)) << entry;
    }
    EXPECT_EQ(Restore(Path("new.db"), backup), "none");
    EXPECT_EQ(RightsOf(Path("new.db")), fs::perms(0600));
}

}  // namespace
