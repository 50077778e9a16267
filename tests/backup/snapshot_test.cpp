#include "backup/snapshot.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "backup/comparison.h"
#include "backup/files.h"
#include "backup/manifest.h"
#include "everything.h"
#include "plain_engine.h"
#include "support/environment.h"
#include "support/second_process.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class SnapshotTest : public testing::Test {
  protected:
    std::string Path(const std::string& name) const { return folder_ / name; }
    /** The files in the folder, except the source and its log. */
    std::vector<std::string> Made() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_.get_Path())) {
            const std::string name = entry.path().filename().string();
            if (!name.starts_with("source.")) {
                names.push_back(name);
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    /** Older than a folder in the making can be. */
    static void MakeOld(const std::string& path) {
        fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::minutes(2));
    }
    static DatabaseFacts FactsOf(const PlainEngine& engine) {
        BackupStop stop;
        SqlWorker worker(engine.get(), stop);
        PrepareForFacts(worker);
        return ReadFacts(worker);
    }
    static std::vector<std::string> Differences(const PlainEngine& source, const std::string& snapshot) {
        const PlainEngine copy(snapshot, "READ_ONLY");
        return CompareFacts(FactsOf(source), FactsOf(copy), {"database", "snapshot"});
    }

    TempFolder folder_;
};

TEST_F(SnapshotTest, HoldsEverything) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("ATTACH '" + Path("source.v") + "' AS v (STORAGE_VERSION 'latest')"), "");
    ASSERT_EQ(source.Run("DETACH v"), "");
    const PlainEngine modern(Path("source.v"));
    ASSERT_EQ(modern.Run(kEverything), "");
    ASSERT_EQ(SnapshotError(modern, Path("snap.db")), "none");
    EXPECT_THAT(Differences(modern, Path("snap.db")), ElementsAre());
    EXPECT_THAT(Made(), ElementsAre("snap.db", "snap.db.manifest.json"));
}

TEST_F(SnapshotTest, HoldsWhatIsOnlyInTheLogAndWhatIsOnlyInTheFile) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE a AS SELECT i FROM range(100000) r(i); CHECKPOINT;"
                         "CREATE TABLE b AS SELECT i FROM range(100000) r(i); INSERT INTO a VALUES (-1)"),
              "");
    ASSERT_GT(FileSize(Path("source.db.wal")), 0U);
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_THAT(Differences(source, Path("snap.db")), ElementsAre());
}

TEST_F(SnapshotTest, OfAnEmptyDatabaseIsAnEmptyDatabase) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_THAT(Differences(source, Path("snap.db")), ElementsAre());
}

// MDUCKDB_TEST_SNAPSHOT_TABLES=10000 is the whole test.
TEST_F(SnapshotTest, HoldsThousandsOfTables) {
    const int tables = NumberFromEnvironment("MDUCKDB_TEST_SNAPSHOT_TABLES", 100);
    const PlainEngine source(Path("source.db"));
    std::string script = "BEGIN;";
    for (int i = 0; i < tables; ++i) {
        const std::string name = "t" + std::to_string(i);
        script += "CREATE TABLE " + name + " (i INTEGER, s VARCHAR); INSERT INTO " + name + " VALUES (" +
                  std::to_string(i) + ", 'text');";
    }
    ASSERT_EQ(source.Run(script + "COMMIT"), "");
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_THAT(Differences(source, Path("snap.db")), ElementsAre());
    EXPECT_EQ(PlainEngine(Path("snap.db"), "READ_ONLY").Text("SELECT count(*)::VARCHAR FROM duckdb_tables()"),
              std::to_string(tables));
}

TEST_F(SnapshotTest, DoesNotHoldWhatIsNotCommitted) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE t (i INTEGER); INSERT INTO t VALUES (1)"), "");
    BackupStop stop;
    SqlWorker writer(source.get(), stop);
    writer.Run("BEGIN");
    writer.Run("INSERT INTO t SELECT range FROM range(1000000)");
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    writer.Run("COMMIT");
    EXPECT_EQ(PlainEngine(Path("snap.db"), "READ_ONLY").Text("SELECT count(*)::VARCHAR FROM t"), "1");
}

TEST_F(SnapshotTest, LeavesNoTraceInTheDatabase) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE t (i INTEGER)"), "");
    const DatabaseFacts before = FactsOf(source);
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_THAT(CompareFacts(before, FactsOf(source), {"before", "after"}), ElementsAre());
    EXPECT_EQ(source.Run("CHECKPOINT"), "");
}

TEST_F(SnapshotTest, KeepsTheLockOnTheFile) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE t (i INTEGER)"), "");
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_THAT(TryOpenElsewhere(Path("source.db"), true), HasSubstr("Could not set lock"));
    EXPECT_THAT(TryOpenElsewhere(Path("source.db"), false), HasSubstr("Could not set lock"));
    ASSERT_EQ(source.Run("INSERT INTO t VALUES (1)"), "");
    EXPECT_EQ(TryOpenElsewhere(Path("snap.db"), true), "ok");
}

TEST_F(SnapshotTest, OfADatabaseThatIsOpenForReading) {
    { ASSERT_EQ(PlainEngine(Path("source.db")).Run("CREATE TABLE t AS SELECT 7 AS i"), ""); }
    const PlainEngine source(Path("source.db"), "READ_ONLY");
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_EQ(PlainEngine(Path("snap.db"), "READ_ONLY").Text("SELECT i::VARCHAR FROM t"), "7");
    EXPECT_EQ(TryOpenElsewhere(Path("source.db"), false), "ok");
    EXPECT_THAT(TryOpenElsewhere(Path("source.db"), true), HasSubstr("Could not set lock"));
}

TEST_F(SnapshotTest, NeverReplacesAnExistingFile) {
    const PlainEngine source(Path("source.db"));
    std::ofstream(Path("snap.db")) << "mine";
    EXPECT_EQ(SnapshotError(source, Path("snap.db")), Path("snap.db") + " is there already");
    EXPECT_EQ(ReadWhole(Path("snap.db")), "mine");
    EXPECT_THAT(Made(), ElementsAre("snap.db"));
}

TEST_F(SnapshotTest, InAMissingFolderIsAnError) {
    const PlainEngine source(Path("source.db"));
    EXPECT_THAT(SnapshotError(source, Path("no/snap.db")), HasSubstr("No such file or directory"));
    EXPECT_THAT(Made(), ElementsAre());
}

TEST_F(SnapshotTest, OfADatabaseWithoutAFileIsAnError) {
    EXPECT_EQ(SnapshotError(PlainEngine(":memory:"), Path("snap.db")),
              "A snapshot needs a database in a file");
}

TEST_F(SnapshotTest, OfAFileThatWasRenamedIsAnError) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE t (i INTEGER); CHECKPOINT"), "");
    fs::rename(Path("source.db"), Path("other.db"));
    EXPECT_THAT(SnapshotError(source, Path("snap.db")), HasSubstr("renamed or deleted"));
    fs::rename(Path("other.db"), Path("source.db"));
}

TEST_F(SnapshotTest, ThatIsStoppedLeavesNothingBehind) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE t AS SELECT i, 'text ' || i AS s FROM range(3000000) r(i)"), "");
    for (const int milliseconds : {0, 5, 20, 60, 120}) {
        BackupStop stop;
        std::thread stopper([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
            stop.Stop();
        });
        EXPECT_THROW(TakeSnapshot(source.get(), Path("snap.db"), stop), BackupInterrupted) << milliseconds;
        stopper.join();
        EXPECT_THAT(Made(), ElementsAre());
    }
    EXPECT_EQ(source.Run("CHECKPOINT"), "");
}

TEST_F(SnapshotTest, HasAManifestThatDescribesIt) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE \"t\"\"x\" AS SELECT 1 AS i; CREATE VIEW v AS SELECT 1"), "");
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    const std::string text = ReadWhole(ManifestOf(Path("snap.db")));
    const auto identity = ReadManifest(text);
    ASSERT_TRUE(identity.has_value()) << text;
    BackupStop stop;
    EXPECT_EQ(identity->size, fs::file_size(Path("snap.db")));
    EXPECT_EQ(identity->sha256, FileSum(Path("snap.db"), stop));
    EXPECT_EQ(identity->duckdb_version, duckdb_library_version());
    EXPECT_THAT(text, HasSubstr("\"compared\": \"rows\""));
    EXPECT_THAT(text, HasSubstr("\"view\": 1"));
    EXPECT_THAT(text, HasSubstr(R"("table": "\"main\".\"t\"\"x\"", "rows": 1)"));
    const std::string version = source.Text(
        "SELECT tags['storage_version'] FROM duckdb_databases() WHERE database_name = current_database()");
    EXPECT_NE(version, "");
    EXPECT_THAT(text, HasSubstr("\"storage_version\": \"" + version + "\""));
}

TEST_F(SnapshotTest, TwoAtOnceWork) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE t AS SELECT i FROM range(1000000) r(i)"), "");
    std::string other;
    std::thread second([&] { other = SnapshotError(source, Path("b.db")); });
    EXPECT_EQ(SnapshotError(source, Path("a.db")), "none");
    second.join();
    EXPECT_EQ(other, "none");
    EXPECT_THAT(Differences(source, Path("a.db")), ElementsAre());
    EXPECT_THAT(Differences(source, Path("b.db")), ElementsAre());
}

TEST_F(SnapshotTest, EndsWhileOthersForceCheckpoints) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(source.Run("CREATE TABLE t AS SELECT i FROM range(500000) r(i)"), "");
    std::atomic<bool> is_done{false};
    std::thread forcing([&] {
        while (!is_done.load()) {
            EXPECT_EQ(source.Run("INSERT INTO t VALUES (1); FORCE CHECKPOINT"), "");
            // Rows are compared only if a snapshot finds a moment without a commit.
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    for (int i = 0; i < 5; ++i) {
        const std::string target = Path("snap" + std::to_string(i) + ".db");
        EXPECT_EQ(SnapshotError(source, target), "none");
        // A sanitized program may find no moment without a commit, and then compares less.
#ifdef MDUCKDB_TEST_IS_SANITIZED
        EXPECT_THAT(ReadWhole(ManifestOf(target)), testing::Not(HasSubstr("\"compared\": \"nothing\"")));
#else
        EXPECT_THAT(ReadWhole(ManifestOf(target)), HasSubstr("\"compared\": \"rows\""));
#endif
    }
    is_done.store(true);
    forcing.join();
}

TEST_F(SnapshotTest, DeletesWhatAKilledProcessLeftBehind) {
    const PlainEngine source(Path("source.db"));
    fs::create_directory(Path("snap.db.part-abcdef"));
    std::ofstream(Path("snap.db.part-abcdef/.in-use")) << "";
    std::ofstream(Path("snap.db.part-abcdef/source.db")) << "half";
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_THAT(Made(), ElementsAre("snap.db", "snap.db.manifest.json"));
}

TEST_F(SnapshotTest, DeletesAnOldEmptyFolderWithoutItsMarkAndLeavesOneThatIsJustBeingMade) {
    const PlainEngine source(Path("source.db"));
    for (const char* name : {"snap.db.part-killed", "snap.db.part-making"}) {
        fs::create_directory(Path(name));
    }
    MakeOld(Path("snap.db.part-killed"));
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_THAT(Made(), ElementsAre("snap.db", "snap.db.manifest.json", "snap.db.part-making"));
}

TEST_F(SnapshotTest, LeavesFoldersOfOthersWhoseNamesLookLikeItsOwn) {
    const PlainEngine source(Path("source.db"));
    for (const char* name : {"snap.db.part-abc123", "snap.db.part-archive"}) {
        fs::create_directory(Path(name));
        std::ofstream(Path(name) + "/mine") << "kept";
        MakeOld(Path(name));
    }
    // A mark alone does not make a name of another length the module's.
    std::ofstream(Path("snap.db.part-archive/.in-use")) << "";
    ASSERT_EQ(SnapshotError(source, Path("snap.db")), "none");
    for (const char* name : {"snap.db.part-abc123", "snap.db.part-archive"}) {
        EXPECT_EQ(ReadWhole(Path(name) + "/mine"), "kept");
    }
}

TEST_F(SnapshotTest, ReplacesTheManifestThatAKilledProcessLeftBehindAndNoFileOfOthers) {
    const PlainEngine source(Path("source.db"));
    ASSERT_EQ(SnapshotError(source, Path("other.db")), "none");
    fs::rename(Path("other.db.manifest.json"), Path("snap.db.manifest.json"));
    const std::string left = ReadWhole(Path("snap.db.manifest.json"));
    EXPECT_EQ(SnapshotError(source, Path("snap.db")), "none");
    EXPECT_NE(ReadWhole(Path("snap.db.manifest.json")), left);

    std::ofstream(Path("new.db.manifest.json")) << R"({"name": "a web page"})";
    EXPECT_EQ(SnapshotError(source, Path("new.db")),
              Path("new.db.manifest.json") + " is there already, and is not the manifest of a snapshot");
    EXPECT_EQ(ReadWhole(Path("new.db.manifest.json")), R"({"name": "a web page"})");
    EXPECT_FALSE(fs::exists(Path("new.db")));
}

TEST_F(SnapshotTest, OfTwoToOneFileTheSlowerOneLeavesTheManifestOfTheOther) {
    const PlainEngine source(Path("source.db"));
    const std::string target = Path("snap.db");
    const auto count_ready = [&] {
        int ready = 0;
        for (const auto& entry : fs::directory_iterator(folder_.get_Path())) {
            ready += fs::exists(entry.path() / "manifest.json") ? 1 : 0;
        }
        return ready;
    };
    BackupStop stop;
    Descriptor turn = LockFolder(folder_.get_Path(), stop);
    std::vector<std::future<std::string>> errors;
    for (int i = 0; i < 2; ++i) {
        errors.push_back(std::async(std::launch::async, [&] { return SnapshotError(source, target); }));
    }
    while (count_ready() < 2 &&
           errors[0].wait_for(std::chrono::milliseconds(1)) != std::future_status::ready &&
           errors[1].wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    }
    EXPECT_EQ(count_ready(), 2) << "they do not wait for the folder";
    EXPECT_FALSE(fs::exists(ManifestOf(target)));
    turn.Close();
    EXPECT_THAT((std::vector{errors[0].get(), errors[1].get()}),
                testing::UnorderedElementsAre("none", target + " is there already"));
    const auto identity = ReadManifest(ReadWhole(ManifestOf(target)));
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->sha256, FileSum(target, stop));
    EXPECT_THAT(Made(), ElementsAre("snap.db", "snap.db.manifest.json"));
}

TEST_F(SnapshotTest, CanBeStoppedWhileItWaitsForTheFolder) {
    BackupStop none;
    const Descriptor turn = LockFolder(folder_.get_Path(), none);
    BackupStop stop;
    stop.Stop();
    EXPECT_THROW(LockFolder(folder_.get_Path(), stop), BackupInterrupted);
}

TEST_F(SnapshotTest, NamesTheTableThatCannotBeRead) {
    {
        const PlainEngine maker(Path("source.db"));
        ASSERT_EQ(maker.Run("CREATE TABLE good AS SELECT 1 AS i;"
                            "CREATE TABLE broken AS SELECT hash(i) AS h, 'text ' || hash(i) AS s "
                            "FROM range(300000) r(i); CHECKPOINT"),
                  "");
    }
    // A flipped byte in the middle of the file is a wrong checksum of a block of the large table.
    std::fstream file(Path("source.db"), std::ios::in | std::ios::out | std::ios::binary);
    const auto middle = static_cast<std::streamoff>(fs::file_size(Path("source.db")) / 2);
    file.seekg(middle);
    const char byte = static_cast<char>(file.get());
    file.seekp(middle);
    file.put(static_cast<char>(byte ^ 0x55));
    file.close();
    const PlainEngine source(Path("source.db"));
    EXPECT_THAT(SnapshotError(source, Path("snap.db")),
                StartsWith("Table \"main\".\"broken\" cannot be read: "));
    EXPECT_THAT(Made(), ElementsAre());
}

}  // namespace
}  // namespace mduckdb
