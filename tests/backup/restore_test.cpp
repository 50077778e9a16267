#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "backup/files.h"
#include "everything.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "support/second_process.h"
#include "support/small_disk.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

/** A snapshot with one row in the table t, and a database with two rows that the snapshot will replace. */
class RestoreSnapshotTest : public testing::Test {
  protected:
    using Database = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;

    void SetUp() override {
        const Database source = host_.Created(Path("source.db"));
        Execute(*source, "CREATE TABLE t AS SELECT 'new' AS s");
        static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
            source->QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId))
            ->Snapshot(Location(snapshot_));
        Execute(*host_.Created(target_), "CREATE TABLE t AS SELECT 'old' AS s");
    }
    std::string Path(const std::string& name) const { return folder_ / name; }
    nbx::mrsql::I_DuckDBRestore& Restorer() const {
        return *static_cast<nbx::mrsql::I_DuckDBRestore*>(
            host_->QueryInterface(nbx::mrsql::kDuckDBRestoreInterfaceId));
    }
    std::string Restore(const std::string& target) const {
        return Thrown([&] { Restorer().RestoreSnapshot(Location(target), Location(snapshot_)); });
    }
    std::string Restore() const { return Restore(target_); }
    std::string ContentOf(const std::string& path) const {
        return QueryText(*host_.Opened(path), "SELECT string_agg(s) FROM t");
    }
    /** The target is unchanged, and no other file is left. */
    void ExpectUntouched() const {
        EXPECT_EQ(ContentOf(target_), "old");
        for (const auto& entry : fs::directory_iterator(folder_.get_Path())) {
            EXPECT_THAT(entry.path().string(), testing::Not(HasSubstr(".part-")));
        }
    }

    TempFolder folder_;
    TestHost host_;
    const std::string snapshot_ = Path("snap.db");
    const std::string target_ = Path("target.db");
};

TEST_F(RestoreSnapshotTest, CreatesANewDatabase) {
    const Database database = Restorer().RestoreSnapshot(Location(Path("made.db")), Location(snapshot_));
    EXPECT_FALSE(database->get_IsOpen());
    database->Open();
    EXPECT_EQ(QueryText(*database, "SELECT s FROM t"), "new");
    EXPECT_TRUE(fs::exists(snapshot_));
}

TEST_F(RestoreSnapshotTest, ReplacesADatabaseAndKeepsItsModeAndLinks) {
    fs::permissions(target_, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("target.db", Path("link.db"));
    EXPECT_EQ(Restore(Path("link.db")), "none");
    EXPECT_EQ(ContentOf(target_), "new");
    EXPECT_TRUE(fs::is_symlink(Path("link.db")));
    EXPECT_EQ(fs::status(target_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(RestoreSnapshotTest, HasNoMoreAccessRightsThanTheOriginalDatabase) {
    const auto own = fs::perms::owner_read | fs::perms::owner_write;
    fs::permissions(target_, own);
    const Database source = host_.Opened(target_);
    static_cast<nbx::mrsql::I_DuckDBSnapshot*>(source->QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId))
        ->Snapshot(Location(Path("private.db")));
    Restorer().RestoreSnapshot(Location(Path("made.db")), Location(Path("private.db")));
    for (const char* const name : {"private.db", "private.db.manifest.json", "made.db"}) {
        EXPECT_EQ(fs::status(Path(name)).permissions(), own) << name;
    }
}

TEST_F(RestoreSnapshotTest, KeepsAnOldDatabaseWhoseLogCannotBeRead) {
    {
        SecondProcess writer({DUCKDB_WRITER, target_});
        ASSERT_EQ(writer.ReadLine(), "committed");
        writer.Kill();
    }
    fs::resize_file(target_, 100);
    EXPECT_EQ(Restore(), "none");
    EXPECT_EQ(ContentOf(target_), "new");
    EXPECT_TRUE(fs::exists(target_ + ".unreadable"));
    EXPECT_TRUE(fs::exists(target_ + ".unreadable.wal"));
}

TEST_F(RestoreSnapshotTest, DoesNotReplayTheLogOfTheOldDatabase) {
    {
        SecondProcess writer({DUCKDB_WRITER, target_});
        ASSERT_EQ(writer.ReadLine(), "committed");
        writer.Kill();
    }
    ASSERT_GT(fs::file_size(target_ + ".wal"), 0U);
    EXPECT_EQ(Restore(), "none");
    EXPECT_EQ(ContentOf(target_), "new");
}

TEST_F(RestoreSnapshotTest, OfATruncatedSnapshotIsRefused) {
    const auto size = fs::file_size(snapshot_);
    fs::resize_file(snapshot_, size - 1);
    EXPECT_EQ(Restore(), "xDuckDBError 72501 [" + target_ + "] [" + snapshot_ + " is damaged: it has " +
                             std::to_string(size - 1) + " bytes instead of " + std::to_string(size) + "]");
    ExpectUntouched();
}

TEST_F(RestoreSnapshotTest, OfADamagedSnapshotIsRefused) {
    const auto size = fs::file_size(snapshot_);
    for (const std::uintmax_t place : {std::uintmax_t{0}, size / 2, size - 1}) {
        std::fstream file(snapshot_, std::ios::in | std::ios::out | std::ios::binary);
        file.seekg(static_cast<std::streamoff>(place));
        const char byte = static_cast<char>(file.get());
        file.seekp(static_cast<std::streamoff>(place));
        file.put(static_cast<char>(byte ^ 1));
        file.close();
        EXPECT_THAT(Restore(),
                    HasSubstr(snapshot_ + " is damaged: its checksum is not that of its manifest"));
        ExpectUntouched();
    }
}

TEST_F(RestoreSnapshotTest, WithoutItsManifestIsRefused) {
    std::ofstream(snapshot_ + ".manifest.json") << "{}";
    EXPECT_THAT(Restore(), HasSubstr("is not the manifest of a snapshot"));
    fs::remove(snapshot_ + ".manifest.json");
    EXPECT_THAT(Restore(), HasSubstr(snapshot_ + ".manifest.json is missing"));
    ExpectUntouched();
}

TEST_F(RestoreSnapshotTest, OfASnapshotThatWasWrittenToIsRefused) {
    {
        SecondProcess writer({DUCKDB_WRITER, snapshot_});
        ASSERT_EQ(writer.ReadLine(), "committed");
        writer.Kill();
    }
    EXPECT_THAT(Restore(), HasSubstr("was written to after it was made"));
    ExpectUntouched();
}

TEST_F(RestoreSnapshotTest, OfASnapshotThatThisProcessHasOpenIsRefusedAndLeavesItLocked) {
    const Database reader = host_.Opened(snapshot_);
    EXPECT_THAT(Restore(), HasSubstr(snapshot_ + " is open in this process"));
    EXPECT_THAT(TryOpenElsewhere(snapshot_, true), HasSubstr("Could not set lock"));
    ExpectUntouched();
    reader->Close();
    EXPECT_EQ(Restore(), "none");
    EXPECT_EQ(ContentOf(target_), "new");
}

TEST_F(RestoreSnapshotTest, IntoADatabaseInUseIsRefused) {
    {
        const Database user = host_.Opened(target_);
        EXPECT_THAT(Restore(), HasSubstr("Can not be dropped. 1 connections are alive."));
        fs::create_symlink("target.db", Path("link.db"));
        EXPECT_THAT(Restore(Path("link.db")), HasSubstr("Can not be dropped. 1 connections are alive."));
        EXPECT_EQ(QueryText(*user, "SELECT s FROM t"), "old");
        EXPECT_THAT(TryOpenElsewhere(target_, true), HasSubstr("Could not set lock"));
    }
    {
        const HeldElsewhere holder(target_, true);
        EXPECT_THAT(Restore(),
                    AllOf(HasSubstr("] [Can not be dropped. "),
                          HasSubstr("duckdb_peer (process " + std::to_string(holder.get_Process()) +
                                    ") has the file open.")));
    }
    ExpectUntouched();
}

TEST_F(RestoreSnapshotTest, ReplacesOnlyADatabaseOrAnEmptyFile) {
    std::ofstream(Path("notes.txt")) << "Not a database at all.";
    EXPECT_THAT(Restore(Path("notes.txt")),
                HasSubstr("Can not be dropped. The file is not a DuckDB database."));
    EXPECT_EQ(fs::file_size(Path("notes.txt")), 22U);
    fs::create_directory(Path("folder.db"));
    EXPECT_THAT(Restore(Path("folder.db")), HasSubstr("Can not be dropped. The file cannot be opened: "));
    std::ofstream(Path("empty.db")).close();
    EXPECT_EQ(Restore(Path("empty.db")), "none");
    EXPECT_EQ(ContentOf(Path("empty.db")), "new");
    ExpectUntouched();
}

TEST_F(RestoreSnapshotTest, WithoutLocationsIsRefused) {
    EXPECT_EQ(Thrown([&] { Restorer().RestoreSnapshot(nullptr, Location(snapshot_)); }), "xDBError 51501");
    EXPECT_EQ(Thrown([&] { Restorer().RestoreSnapshot(Location(target_), nullptr); }), "xDBError 66000");
    EXPECT_EQ(Thrown([&] { Restorer().RestoreSnapshot(Location(target_), Location(Path("none"))); }),
              "xDBError 66000");
    EXPECT_THAT(Restore(":memory:"), HasSubstr("A snapshot is restored into a file"));
    ExpectUntouched();
}

TEST_F(RestoreSnapshotTest, OntoAFullDiskLeavesTheDatabaseUnchanged) {
    SmallDisk disk(2U << 20U);
    if (!disk.get_Refusal().empty()) {
        GTEST_SKIP() << disk.get_Refusal();
    }
    const std::string target = disk.get_Path() / "target.db";
    fs::copy_file(target_, target);
    disk.Fill();
    EXPECT_THAT(Restore(target), HasSubstr("No space left on device"));
    disk.MakeRoom();
    EXPECT_EQ(ContentOf(target), "old");
    EXPECT_EQ(Restore(target), "none");
    EXPECT_EQ(ContentOf(target), "new");
}

}  // namespace
