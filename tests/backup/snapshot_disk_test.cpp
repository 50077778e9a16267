#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "backup/files.h"
#include "plain_engine.h"
#include "support/small_disk.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr uint64_t kMegabyte = uint64_t{1} << 20U;

TEST(SnapshotDisk, ThatIsFullIsAnErrorAndLeavesNothingBehind) {
    const TempFolder folder;
    SmallDisk disk(4 * kMegabyte);
    if (!disk.get_Refusal().empty()) {
        GTEST_SKIP() << disk.get_Refusal();
    }
    const PlainEngine source(folder / "source.db");
    ASSERT_EQ(source.Run("CREATE TABLE t AS SELECT hash(i) AS h FROM range(2000000) r(i)"), "");
    const std::string target = disk.get_Path() / "snap.db";
    EXPECT_THAT(SnapshotError(source, target), HasSubstr("No space left on device"));
    EXPECT_TRUE(fs::is_empty(disk.get_Path()));
    EXPECT_EQ(source.Run("CHECKPOINT"), "");
}

TEST(SnapshotDisk, OfAnotherFileSystemTakesSnapshots) {
    const TempFolder folder;
    SmallDisk disk(64 * kMegabyte);
    if (!disk.get_Refusal().empty()) {
        GTEST_SKIP() << disk.get_Refusal();
    }
    const PlainEngine source(folder / "source.db");
    ASSERT_EQ(source.Run("CREATE TABLE t AS SELECT 7 AS i"), "");
    const std::string target = disk.get_Path() / "snap.db";
    EXPECT_EQ(SnapshotError(source, target), "none");
    EXPECT_EQ(PlainEngine(target, "READ_ONLY").Text("SELECT i::VARCHAR FROM t"), "7");
}

TEST(SnapshotDisk, ThatIsReadOnlyIsAnError) {
    const TempFolder folder;
    SmallDisk disk(4 * kMegabyte);
    if (!disk.get_Refusal().empty()) {
        GTEST_SKIP() << disk.get_Refusal();
    }
    disk.MakeReadOnly();
    const PlainEngine source(folder / "source.db");
    EXPECT_THAT(SnapshotError(source, disk.get_Path() / "snap.db"), HasSubstr("Read-only file system"));
}

/** A folder in memory, if there is one. A file system on a disk fills a page for each page of a hole that is
    read, which takes several times as long as everything else here. */
fs::path MemoryFolder() {
    const fs::path memory = "/dev/shm";
    return access(memory.c_str(), W_OK) == 0 ? memory : fs::temp_directory_path();
}

// The file is sparse after its last block, like a file whose blocks were freed and never written again.
TEST(SnapshotDisk, HoldsAFileOfMoreThanFourGigabytesAndKeepsItSparse) {
    const TempFolder folder(MemoryFolder());
    const PlainEngine source(folder / "source.db");
    ASSERT_EQ(source.Run("CREATE TABLE t AS SELECT 7 AS i; CHECKPOINT"), "");
    const uint64_t size = 4097 * kMegabyte;
    ASSERT_EQ(truncate((folder / "source.db").c_str(), static_cast<off_t>(size)), 0);
    const std::string target = folder / "snap.db";
    ASSERT_EQ(SnapshotError(source, target), "none");
    EXPECT_EQ(FileSize(target), size);
    struct stat info {};
    ASSERT_EQ(stat(target.c_str(), &info), 0);
    EXPECT_LT(static_cast<uint64_t>(info.st_blocks) * 512, 16 * kMegabyte);
    EXPECT_EQ(PlainEngine(target, "READ_ONLY").Text("SELECT i::VARCHAR FROM t"), "7");
}

}  // namespace
}  // namespace mduckdb
