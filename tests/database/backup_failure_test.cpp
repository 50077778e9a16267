#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <random>
#include <thread>

#include "database_test_base.h"
#include "nbx/hooks.h"
#include "support/expected_by_version.h"
#include "support/small_disk.h"

// Backups that cannot be finished, and restores that cannot succeed: what they throw, and that they leave the
// database intact.

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr int kRows = 150000;

/** Whether a backup began to write rows in the folder. */
bool IsExporting(const fs::path& target) {
    std::error_code gone;
    for (const auto& entry : fs::recursive_directory_iterator(target, gone)) {
        if (entry.path().extension() == ".parquet") {
            return true;
        }
    }
    return false;
}

class BackupFailure : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        database = host.Created(Path());
        // About 10 MB as a backup: digests do not compress.
        Execute(*database,
                "CREATE TABLE t AS SELECT range AS i, md5(range::VARCHAR) AS x, md5(x) AS y FROM range(" +
                    std::to_string(kRows) + ")");
        Execute(*database, "CREATE TABLE a AS SELECT 1 AS i");
        sum = Sum();
        fs::create_directory(Path("backups"));
    }
    void TearDown() override {
        database = nullptr;
        DatabaseTest::TearDown();
    }
    std::string Sum() {
        return QueryText(*database, "SELECT count(*) || ' ' || sum(hash(t)) FROM t") + " " +
               QueryText(*database, "SELECT count(*) FROM a");
    }
    std::string BackUp(const fs::path& target) {
        return Thrown([&] { database->Backup(Location(target.string())); });
    }
    /** The one backup in a folder. */
    static fs::path OnlyIn(const fs::path& target) {
        fs::path only;
        for (const auto& entry : fs::directory_iterator(target)) {
            EXPECT_TRUE(only.empty()) << only << " and " << entry;
            only = entry.path();
        }
        return only;
    }
    /** The open database works as before, the file does so when it is opened again, and a backup
        succeeds. */
    void ExpectUnharmed() {
        EXPECT_TRUE(database->get_IsOpen());
        EXPECT_EQ(Sum(), sum);
        database->Close();
        EXPECT_EQ(TryOpenElsewhere(Path(), true), "ok");
        database->Open();
        ASSERT_FALSE(database->get_IsReadOnly());
        EXPECT_EQ(Sum(), sum);
        fs::create_directory(Path("good"));
        EXPECT_EQ(BackUp(Path("good")), "none");
        EXPECT_TRUE(fs::exists(OnlyIn(Path("good")) / "load.sql"));
    }
    std::string Refused(const std::string& type) const {
        return "xDuckDBError 72501 [" + Path() + "] [{\"exception_type\":\"" + type + "\"";
    }

    Database database;
    std::string sum;
    nbx::smart_ptr<nbx::I_Location> (*make_backup_location)(const nbx::smart_ptr<nbx::I_Location>&) =
        nbx::mrsql::gCreateBackupLocation;
};

TEST_F(BackupFailure, OnADiskThatFillsUpFailsAndLeavesTheDatabaseAlone) {
    const SmallDisk disk(4 << 20);
    if (!disk.get_Refusal().empty()) {
        GTEST_SKIP() << disk.get_Refusal();
    }
    const std::string thrown = BackUp(disk.get_Path());
    EXPECT_THAT(thrown, StartsWith(Refused("IO")));
    EXPECT_THAT(thrown, HasSubstr("No space left on device"));
    // What was written stays, and cannot be mistaken for a complete backup.
    const fs::path backup = OnlyIn(disk.get_Path());
    EXPECT_TRUE(fs::exists(backup / (std::string("test.db.") + nbx::gmDuckDB_backup_sfx)));
    EXPECT_NE(
        Thrown([&] { host->RestoreDatabase(Location(Path("restored.db")), Location(backup.string())); }),
        "none");
    ExpectUnharmed();
}

TEST_F(BackupFailure, OnADiskWithoutRoomForTheMarkerExportsNothing) {
    SmallDisk disk(1 << 20);
    if (!disk.get_Refusal().empty()) {
        GTEST_SKIP() << disk.get_Refusal();
    }
    disk.Fill();
    duckdb_faults::ClearLog();
    EXPECT_THAT(BackUp(disk.get_Path()), AllOf(StartsWith("xException 66001 ["),
                                               HasSubstr("[Cannot write: No space left on device]")));
    EXPECT_TRUE(duckdb_faults::get_Log("duckdb_prepare EXPORT").empty());
    ExpectUnharmed();
    disk.MakeRoom();
}

TEST_F(BackupFailure, IntoAFolderThatCannotBeWrittenToExportsNothing) {
    SmallDisk disk(1 << 20);
    if (!disk.get_Refusal().empty()) {
        GTEST_SKIP() << disk.get_Refusal();
    }
    disk.MakeReadOnly();
    duckdb_faults::ClearLog();
    EXPECT_THAT(BackUp(disk.get_Path()),
                AllOf(StartsWith("xException 66001 ["),
                      HasSubstr("[Cannot create the folder: Read-only file system]")));
    EXPECT_TRUE(duckdb_faults::get_Log("duckdb_prepare EXPORT").empty());
    EXPECT_TRUE(fs::is_empty(disk.get_Path()));
    ExpectUnharmed();
}

TEST_F(BackupFailure, WithAFileWhereItsFolderShouldBeLeavesTheFile) {
    nbx::mrsql::gCreateBackupLocation = [](const nbx::smart_ptr<nbx::I_Location>& chosen) {
        auto location = chosen->MakeChild(S("backup"));
        std::ofstream(U(location->get_PathText())) << "mine";
        return location;
    };
    EXPECT_THAT(BackUp(Path("backups")),
                AllOf(StartsWith("xException 66001 ["), HasSubstr("[Cannot create: Not a directory]")));
    std::string content;
    std::ifstream(Path("backups/backup")) >> content;
    EXPECT_EQ(content, "mine");
    nbx::mrsql::gCreateBackupLocation = make_backup_location;
    ExpectUnharmed();
}

TEST_F(BackupFailure, WhoseFolderVanishesBeforeTheMarkerExportsNothing) {
    nbx::mrsql::gCreateBackupLocation = [](const nbx::smart_ptr<nbx::I_Location>& chosen) {
        auto location = chosen->MakeChild(S("backup"));
        fs::remove_all(U(chosen->get_PathText()));
        return location;
    };
    duckdb_faults::ClearLog();
    EXPECT_THAT(BackUp(Path("backups")), AllOf(StartsWith("xException 66001 ["),
                                               HasSubstr("[Cannot create: No such file or directory]")));
    EXPECT_TRUE(duckdb_faults::get_Log("duckdb_prepare EXPORT").empty());
    EXPECT_FALSE(fs::exists(Path("backups")));
    nbx::mrsql::gCreateBackupLocation = make_backup_location;
    ExpectUnharmed();
}

/** A host's hook that does something and then answers as the default does. The hook has no state. */
std::function<void()>* gAct = nullptr;
nbx::smart_ptr<nbx::I_Location> (*gMakeBackupLocation)(const nbx::smart_ptr<nbx::I_Location>&) = nullptr;

class BackupHook : public BackupFailure {
  protected:
    void SetUp() override {
        BackupFailure::SetUp();
        gMakeBackupLocation = make_backup_location;
        gAct = &act;
        nbx::mrsql::gCreateBackupLocation = [](const nbx::smart_ptr<nbx::I_Location>& chosen) {
            // A copy, since an act may replace itself.
            const std::function<void()> running = *gAct;
            running();
            return gMakeBackupLocation(chosen);
        };
    }
    void TearDown() override {
        nbx::mrsql::gCreateBackupLocation = make_backup_location;
        BackupFailure::TearDown();
    }
    /** Whether no file is there; a folder may be. */
    bool IsEmpty() {
        const fs::recursive_directory_iterator all(Path("backups"));
        return std::none_of(begin(all), end(all), [](const auto& entry) { return entry.is_regular_file(); });
    }

    std::function<void()> act;
};

TEST_F(BackupHook, ThatThrowsEndsTheBackupBeforeAnythingIsWritten) {
    act = [] { throw nbx::xException(0x1234, "the host's own"); };
    EXPECT_THAT(BackUp(Path("backups")), HasSubstr("the host's own"));
    EXPECT_TRUE(IsEmpty());
    act = [] { throw std::bad_alloc(); };
    EXPECT_THAT(BackUp(Path("backups")), HasSubstr("bad_alloc"));
    EXPECT_TRUE(IsEmpty());
    act = [] {};
    ExpectUnharmed();
}

TEST_F(BackupHook, ThatClosesOrDropsTheDatabaseEndsTheBackupAndLosesNothing) {
    act = [this] { database->Close(); };
    EXPECT_THAT(BackUp(Path("backups")), HasSubstr("DuckDBDatabase is not open"));
    EXPECT_TRUE(IsEmpty());
    EXPECT_EQ(TryOpenElsewhere(Path(), true), "ok");
    act = [] {};
    database->Open();
    EXPECT_EQ(Sum(), sum);
    fs::create_directory(Path("good"));
    act = [this] { database->Drop(); };
    EXPECT_THAT(BackUp(Path("good")), HasSubstr("Can not be dropped"));
    act = [] {};
    database->Open();
    EXPECT_EQ(Sum(), sum);
}

TEST_F(BackupHook, ThatRunsSqlOrAnotherBackupDisturbsNothing) {
    fs::create_directory(Path("inner"));
    act = [this] {
        act = [] {};
        EXPECT_EQ("1", QueryText(*database, "SELECT count(*) FROM a"));
        EXPECT_EQ("none", BackUp(Path("inner")));
    };
    EXPECT_EQ("none", BackUp(Path("backups")));
    for (const char* name : {"inner", "backups"}) {
        EXPECT_TRUE(fs::exists(OnlyIn(Path(name)) / "load.sql")) << name;
    }
    ExpectUnharmed();
}

TEST_F(BackupFailure, WhoseFolderVanishesDuringTheExportIsAnError) {
    std::atomic<bool> is_over = false;
    std::thread remover([&] {
        while (!is_over && !IsExporting(Path("backups"))) {
            std::this_thread::yield();
        }
        fs::rename(OnlyIn(Path("backups")), Path("elsewhere"));
    });
    const std::string thrown = BackUp(Path("backups"));
    is_over = true;
    remover.join();
    EXPECT_THAT(thrown, StartsWith(Refused("IO")));
    EXPECT_THAT(thrown, HasSubstr("No such file or directory"));
    EXPECT_FALSE(fs::exists(Path("elsewhere/load.sql")));
    ExpectUnharmed();
}

TEST_F(BackupFailure, ThatIsKilledLeavesEveryCommittedRow) {
    database->Close();
    std::mt19937 random(7);
    int unfinished = 0;
    for (int run = 1; run <= 3; ++run) {
        {
            SecondProcess runner({BACKUP_RUNNER, Path(), Path("backups")});
            ASSERT_EQ(runner.ReadLine(), "committed");
            while (!IsExporting(Path("backups"))) {
                std::this_thread::sleep_for(1ms);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 50));
            runner.Kill();
        }
        for (const auto& backup : fs::directory_iterator(Path("backups"))) {
            if (!fs::exists(backup.path() / "load.sql")) {
                ++unfinished;
                EXPECT_THAT(
                    Thrown([&] {
                        host->RestoreDatabase(Location(Path("restored.db")),
                                              Location(backup.path().string()));
                    }),
                    StartsWith("xDuckDBError 72501 [" + Path("restored.db") + "] [" +
                               get_ExpectedByVersion().before_unexpanded + "{\"exception_type\":\"IO\""));
            }
        }
        fs::remove_all(Path("backups"));
        fs::create_directory(Path("backups"));
        database->Open();
        ASSERT_FALSE(database->get_IsReadOnly());
        EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t WHERE i = -1"), std::to_string(run));
        Execute(*database, "BEGIN; DELETE FROM t WHERE i = -1");
        EXPECT_EQ(Sum(), sum) << "run " << run;
        Execute(*database, "ROLLBACK");
        database->Close();
    }
    EXPECT_GT(unfinished, 0);
    database->Open();
    Execute(*database, "DELETE FROM t WHERE i = -1");
    ExpectUnharmed();
}

TEST_F(BackupFailure, DoesNotFollowFromAViewOnOneWithALaterName) {
    Execute(*database, "CREATE VIEW v2 AS FROM a; CREATE VIEW v1 AS FROM v2");
    ASSERT_EQ(BackUp(Path("backups")), "none");
    const auto restored =
        host->RestoreDatabase(Location(Path("restored.db")), Location(OnlyIn(Path("backups")).string()));
    restored->Open();
    constexpr const char* kCount = "SELECT count(*)::VARCHAR FROM v1";
    EXPECT_EQ(QueryText(*restored, kCount), QueryText(*database, kCount));
    ExpectUnharmed();
}

}  // namespace
