#include "engines/engine_files.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "support/temp_folder.h"

namespace mduckdb {
namespace {

using Access = EngineFiles::Access;

class EngineFilesTest : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(files.get_IdleCount(), 0u); }
    static duckdb_database OpenAt(const std::string& file_path, const char* mode) {
        duckdb_config config = nullptr;
        duckdb_create_config(&config);
        duckdb_set_config(config, "access_mode", mode);
        duckdb_database engine = nullptr;
        EXPECT_EQ(duckdb_open_ext(file_path.c_str(), &engine, config, nullptr), DuckDBSuccess);
        duckdb_destroy_config(&config);
        return engine;
    }
    duckdb_database OpenWriter(const std::string& file_path) {
        EXPECT_TRUE(files.TryHold(file_path, Access::writing));
        return OpenAt(file_path, "READ_WRITE");
    }
    duckdb_database OpenReader(const std::string& file_path) {
        EXPECT_TRUE(files.TryHold(file_path, Access::reading));
        return OpenAt(file_path, "READ_ONLY");
    }
    void MakeFile(const std::string& file_path) {
        duckdb_database engine = OpenWriter(file_path);
        files.GiveUp(file_path, Access::writing, "", engine);
    }

    TempFolder folder;
    std::string path = folder / "a.db";
    EngineFiles files;
};

TEST_F(EngineFilesTest, AWriterExcludesEveryoneElse) {
    const duckdb_database writer = OpenWriter(path);
    EXPECT_TRUE(files.IsHeldForWriting(path));
    EXPECT_FALSE(files.TryHold(path, Access::reading));
    EXPECT_FALSE(files.TryHold(path, Access::writing));
    EXPECT_TRUE(files.TryHold(folder / "b.db", Access::writing));
    files.CancelHold(folder / "b.db", Access::writing);
    files.GiveUp(path, Access::writing, "", writer);
    EXPECT_FALSE(files.IsHeldForWriting(path));
    EXPECT_FALSE(files.IsInUse(path));
}

TEST_F(EngineFilesTest, OneFileHasOneNameByAnyPath) {
    std::filesystem::create_directory(folder / "sub");
    std::filesystem::create_symlink(path, folder / "link.db");
    EXPECT_TRUE(files.TryHold(path, Access::writing));
    EXPECT_FALSE(files.TryHold(folder / "sub/../a.db", Access::reading));
    MakeFile(folder / "other.db");
    EXPECT_FALSE(files.TryHold(folder / "link.db", Access::reading));
    files.CancelHold(path, Access::writing);
}

TEST_F(EngineFilesTest, AnIdleReaderIsHandedOutForTheSameConfigurationOnly) {
    MakeFile(path);
    const duckdb_database first = OpenReader(path);
    const duckdb_database second = OpenReader(path);
    files.GiveUp(path, Access::reading, "one", second);
    EXPECT_EQ(files.get_IdleCount(), 1u);
    EXPECT_EQ(files.TakeIdleReader(path, "two"), nullptr);
    EXPECT_EQ(files.TakeIdleReader(path, "one"), second);
    EXPECT_EQ(files.TakeIdleReader(path, "one"), nullptr);
    files.GiveUp(path, Access::reading, "one", second);
    files.GiveUp(path, Access::reading, "one", first);
    EXPECT_FALSE(files.IsInUse(path));
}

TEST_F(EngineFilesTest, AReaderFromBeforeAWriterIsNotHandedOut) {
    MakeFile(path);
    const duckdb_database keeper = OpenReader(path);
    const duckdb_database idle = OpenReader(path);
    files.GiveUp(path, Access::reading, "", idle);
    const duckdb_database writer = OpenWriter(path);
    files.GiveUp(path, Access::writing, "", writer);
    EXPECT_EQ(files.TakeIdleReader(path, ""), nullptr);
    EXPECT_EQ(files.TakeIdleWriter(path), writer);
    files.GiveUp(path, Access::writing, "", writer);
    files.GiveUp(path, Access::reading, "", keeper);
}

TEST_F(EngineFilesTest, AReaderOfAFileThatChangedIsNotHandedOut) {
    MakeFile(path);
    const duckdb_database keeper = OpenReader(path);
    const duckdb_database idle = OpenReader(path);
    files.GiveUp(path, Access::reading, "", idle);
    std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + std::chrono::seconds(5));
    EXPECT_EQ(files.TakeIdleReader(path, ""), nullptr);
    files.GiveUp(path, Access::reading, "", keeper);
}

TEST_F(EngineFilesTest, ARetiredWriterKeepsTheFileInUseAndAllowsANewOne) {
    const duckdb_database dead = OpenWriter(path);
    files.Retire(path, Access::writing);
    EXPECT_FALSE(files.IsHeldForWriting(path));
    EXPECT_TRUE(files.IsInUse(path));
    const duckdb_database writer = OpenWriter(path);
    files.GiveUp(path, Access::writing, "", writer);
    EXPECT_EQ(files.get_IdleCount(), 1u);
    files.GiveUp(path, Access::dead, "", dead);
    EXPECT_FALSE(files.IsInUse(path));
}

TEST_F(EngineFilesTest, IdleEnginesCanBeClosedBeforeTheFileIsDeleted) {
    MakeFile(path);
    const duckdb_database keeper = OpenReader(path);
    const duckdb_database writer = OpenWriter(path);
    files.GiveUp(path, Access::writing, "", writer);
    files.CloseIdle(path);
    EXPECT_EQ(files.get_IdleCount(), 0u);
    EXPECT_EQ(files.TakeIdleWriter(path), nullptr);
    files.GiveUp(path, Access::reading, "", keeper);
    files.CloseIdle(path);
}

}  // namespace
}  // namespace mduckdb
