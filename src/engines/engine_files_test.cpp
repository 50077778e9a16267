#include "engines/engine_files.h"

#include <gmock/gmock.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <future>
#include <mutex>
#include <vector>

#include "support/second_process.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

using ::testing::HasSubstr;

struct Reading : Configuration {
    Reading() { SetAccessMode("READ_ONLY"); }
};

/** A separate list. It is never destroyed, so something must refer to it for the leak checker. */
nbx::I_OpenFiles& MakeList() {
    static auto* lists = new std::vector<nbx::I_OpenFiles*>;
    lists->push_back(&nbx::MakeOpenFiles());
    return *lists->back();
}

class EngineFilesTest : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(files.get_EngineCount(), 0u); }
    SharedEngine OpenWriter(const std::string& file) {
        FileTurn turn(files, file);
        Configuration configuration;
        configuration.SetAccessMode("READ_WRITE");
        return turn.OpenWriter(file, configuration, error);
    }
    SharedEngine OpenReader(const std::string& file) {
        FileTurn turn(files, file);
        return turn.OpenReader(file, Reading(), error);
    }
    SharedEngine TakeIdleReader(const Configuration& configuration) {
        return FileTurn(files, path).TakeIdleReader(configuration);
    }
    SharedEngine JoinWriter(const std::string& file) { return FileTurn(files, file).JoinWriter(); }
    uint32_t CountUsers(const std::string& file) { return FileTurn(files, file).get_UserCount(); }

    TempFolder folder;
    std::string path = folder / "a.db";
    std::string error;
    EngineFiles files{MakeList()};
};

TEST_F(EngineFilesTest, AWriterIsSharedAndExcludesOtherEngines) {
    const SharedEngine writer = OpenWriter(path);
    ASSERT_NE(writer, nullptr) << error;
    const SharedEngine user = JoinWriter(path);
    EXPECT_EQ(user->handle, writer->handle);
    EXPECT_EQ(CountUsers(path), 2u);
    EXPECT_EQ(OpenReader(path), nullptr);
    EXPECT_EQ(OpenWriter(path), nullptr);
    EXPECT_EQ(JoinWriter(folder / "b.db"), nullptr);
    EXPECT_NE(OpenWriter(folder / "b.db"), nullptr);
}

TEST_F(EngineFilesTest, AnEngineIsClosedWithItsLastUse) {
    SharedEngine first = OpenWriter(path);
    SharedEngine second = JoinWriter(path);
    first.reset();
    EXPECT_EQ(CountUsers(path), 1u);
    second.reset();
    EXPECT_FALSE(files.IsInUse(path));
    EXPECT_EQ(files.get_EngineCount(), 0u);
}

TEST_F(EngineFilesTest, AFileIsTheSameUnderEveryName) {
    namespace fs = std::filesystem;
    fs::create_directory(folder / "sub");
    fs::create_directory_symlink(folder / "sub", folder / "folder_link");
    fs::create_symlink("a.db", folder / "link.db");
    // The link points to a file that opening it creates.
    const SharedEngine writer = OpenWriter(folder / "link.db");
    ASSERT_NE(writer, nullptr) << error;
    fs::create_hard_link(path, folder / "sub/hard.db");
    for (const char* name :
         {"a.db", "link.db", "sub/../a.db", "folder_link/../a.db", "folder_link/hard.db"}) {
        EXPECT_EQ(CountUsers(folder / name), 1u) << name;
        EXPECT_EQ(JoinWriter(folder / name)->handle, writer->handle) << name;
    }
    EXPECT_EQ(CountUsers(folder / "sub/a.db"), 0u);
}

TEST_F(EngineFilesTest, AReplacedFileIsAnotherFile) {
    const SharedEngine first = OpenWriter(path);
    std::filesystem::rename(path, folder / "moved.db");
    EXPECT_FALSE(files.IsInUse(path));
    EXPECT_TRUE(files.IsInUse(folder / "moved.db"));
    EXPECT_NE(OpenWriter(path), nullptr) << error;
}

TEST_F(EngineFilesTest, AWriterIsRefusedWhileThereAreReaders) {
    OpenWriter(path);
    SharedEngine first = OpenReader(path);
    SharedEngine second = OpenReader(path);
    EXPECT_EQ(OpenWriter(path), nullptr);
    EXPECT_EQ(error, "Cannot open file for writing: 2 readers of this process have it open");
    first.reset();
    EXPECT_EQ(OpenWriter(path), nullptr);
    EXPECT_EQ(error, "Cannot open file for writing: 1 reader of this process has it open");
    second.reset();
    EXPECT_NE(OpenWriter(path), nullptr) << error;
}

TEST_F(EngineFilesTest, AReaderThatCannotBeOpenedLeavesTheOthersTheirLock) {
    ASSERT_EQ(RunElsewhere(path, "CREATE TABLE t AS SELECT 1 AS i"), "ok");
    const SharedEngine reader = OpenReader(path);
    ASSERT_THAT(TryOpenElsewhere(path, true), HasSubstr("Could not set lock"));
    Reading small;
    small.Set("memory_limit", "1KB");
    ASSERT_EQ(FileTurn(files, path).OpenReader(path, small, error), nullptr);
    ASSERT_THAT(error, HasSubstr("Out of Memory"));
    EXPECT_THAT(TryOpenElsewhere(path, true), HasSubstr("Could not set lock"));
    EXPECT_EQ(TryOpenElsewhere(path, false), "ok");
}

TEST_F(EngineFilesTest, AnIdleReaderIsReusedOnlyWithTheSameConfiguration) {
    OpenWriter(path);
    const SharedEngine first = OpenReader(path);
    SharedEngine second = OpenReader(path);
    const duckdb_database handle = second->handle;
    second.reset();
    EXPECT_EQ(files.get_EngineCount(), 2u);
    Reading other;
    other.Mark("other");
    EXPECT_EQ(TakeIdleReader(other), nullptr);
    second = TakeIdleReader(Reading());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->handle, handle);
    EXPECT_EQ(TakeIdleReader(Reading()), nullptr);
}

TEST_F(EngineFilesTest, AReaderOfAFileThatChangedIsNotReused) {
    OpenWriter(path);
    const SharedEngine keeper = OpenReader(path);
    OpenReader(path);
    std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + std::chrono::seconds(5));
    EXPECT_EQ(TakeIdleReader(Reading()), nullptr);
}

TEST_F(EngineFilesTest, ARetiredWriterKeepsTheFileInUseAndMakesRoomForANewOne) {
    const SharedEngine user = OpenWriter(path);
    {
        FileTurn turn(files, path);
        const SharedEngine dead = turn.JoinWriter();
        turn.Retire(*dead);
    }
    EXPECT_EQ(JoinWriter(path), nullptr);
    EXPECT_TRUE(files.IsInUse(path));
    SharedEngine writer = OpenWriter(path);
    ASSERT_NE(writer, nullptr) << error;
    EXPECT_NE(writer->handle, user->handle);
    writer.reset();
    // It stays open, since closing it would drop the lock of the other.
    EXPECT_EQ(files.get_EngineCount(), 2u);
    EXPECT_NE(JoinWriter(path), nullptr);
}

TEST_F(EngineFilesTest, AFailedOpenLeavesNothingBehind) {
    EXPECT_EQ(OpenReader(path), nullptr);
    EXPECT_NE(error, "");
    EXPECT_FALSE(files.IsInUse(path));
    EXPECT_FALSE(std::filesystem::exists(path));
}

/** As the system sees files on a network: not at all. */
class Network : public FileSystem {
  public:
    FileLook Look(const std::string& path) const override {
        FileLook look;
        look.name = look.path = path;
        return look;
    }
    bool Identify(const char*, uint64_t&, uint64_t&) const noexcept override { return false; }
    FileStamp ReadStamp(const std::string&) const override { return {-1, -1, -1, -1}; }
};

TEST(EngineFilesOnANetwork, AreReadByANewEngineEachTime) {
    const TempFolder folder;
    const std::string path = folder / "a.db";
    {
        std::string error;
        EngineFiles local(MakeList());
        ASSERT_NE(FileTurn(local, path).OpenWriter(path, Configuration(), error), nullptr) << error;
    }
    const Network network;
    EngineFiles files(MakeList(), network);
    const auto open = [&] {
        std::string error;
        return FileTurn(files, path).OpenReader(path, Reading(), error);
    };
    const SharedEngine keeper = open();
    open();
    EXPECT_EQ(files.get_EngineCount(), 2u);
    // A change of the file would not be noticed.
    EXPECT_EQ(FileTurn(files, path).TakeIdleReader(Reading()), nullptr);
}

TEST(EngineFilesOnANetwork, AreOtherFilesUnderEveryOtherAddress) {
    nbx::I_OpenFiles& list = MakeList();
    const FileLook one = FileSystem::Get().Look("s3://one/a.db");
    const FileLook two = FileSystem::Get().Look("s3://two/a.db");
    nbx::OpenFile* const file = list.Take(one.get_Identity());
    EXPECT_TRUE(list.Matches(file, one.get_Identity()));
    EXPECT_FALSE(list.Matches(file, two.get_Identity()));
    list.Release(file);
}

/** A file system on which looking at one path blocks until the test releases it. */
class SlowDisk : public FileSystem {
  public:
    explicit SlowDisk(std::string slow_path) : slow_path_(std::move(slow_path)) {}
    FileLook Look(const std::string& path) const override {
        Wait(path);
        return FileSystem::Look(path);
    }
    FileStamp ReadStamp(const std::string& path) const override {
        Wait(path);
        return FileSystem::ReadStamp(path);
    }
    void AwaitArrival() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return has_arrived_; });
    }
    void Finish() {
        const std::scoped_lock lock(mutex_);
        is_done_ = true;
        changed_.notify_all();
    }

  private:
    void Wait(const std::string& path) const {
        std::unique_lock lock(mutex_);
        if (path == slow_path_) {
            has_arrived_ = true;
            changed_.notify_all();
            changed_.wait(lock, [this] { return is_done_; });
        }
    }

    const std::string slow_path_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    mutable bool has_arrived_ = false;
    bool is_done_ = false;
};

TEST(EngineFilesOnASlowDisk, DoNotDelayOtherFiles) {
    const TempFolder folder;
    SlowDisk disk(folder / "slow.db");
    nbx::I_OpenFiles& list = MakeList();
    EngineFiles slow_files(list, disk);
    EngineFiles files(list);
    const auto open = [](EngineFiles& on, const std::string& path) {
        std::string error;
        FileTurn turn(on, path);
        return turn.OpenWriter(path, Configuration(), error) != nullptr;
    };
    // One thread is blocked while it looks at the path, and one waits for its turn on a file that is being
    // opened.
    auto slow = std::async(std::launch::async, [&] { return open(slow_files, folder / "slow.db"); });
    disk.AwaitArrival();
    auto turn = std::make_unique<FileTurn>(files, folder / "taken.db");
    auto waiting = std::async(std::launch::async, [&] { return open(files, folder / "taken.db"); });
    auto fast = std::async(std::launch::async, [&] { return open(files, folder / "fast.db"); });
    ASSERT_EQ(fast.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_TRUE(fast.get());
    EXPECT_EQ(slow.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    disk.Finish();
    turn.reset();
    EXPECT_TRUE(slow.get());
    EXPECT_TRUE(waiting.get());
    EXPECT_EQ(list.CountEngines(), 0u);
}

}  // namespace
}  // namespace mduckdb
