#include "engines/surroundings.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "support/temp_folder.h"

namespace mduckdb {
namespace {

class FolderStampTest : public testing::Test {
  protected:
    void Write(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ / name) << text;
    }
    FolderStamp Stamp() const { return FolderStamp(folder_.get_Path().string()); }

    TempFolder folder_;
};

TEST_F(FolderStampTest, ShowsEachChangeOfAFile) {
    Write("a", "one");
    const std::function<void()> changes[] = {
        [&] { Write("b", ""); },
        [&] { Write("a", "three"); },
        [&] { std::filesystem::rename(folder_ / "b", folder_ / "c"); },
        [&] { std::filesystem::remove(folder_ / "c"); },
        [&] { std::filesystem::permissions(folder_ / "a", std::filesystem::perms::owner_read); },
    };
    for (const auto& change : changes) {
        const FolderStamp before = Stamp();
        EXPECT_TRUE(before == Stamp());
        // Times have steps of some milliseconds.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        change();
        EXPECT_FALSE(before == Stamp()) << &change - &changes[0];
    }
}

TEST_F(FolderStampTest, ShowsThatTheTargetOfALinkHasChanged) {
    const TempFolder other;
    std::filesystem::create_symlink(other / "target", folder_ / "link");
    const FolderStamp missing = Stamp();
    std::ofstream(other / "target") << "text";
    EXPECT_FALSE(missing == Stamp());
}

TEST_F(FolderStampTest, OfAMissingFolderIsSettledAndDiffersFromThatOfAnEmptyOne) {
    const FolderStamp missing(folder_ / "missing");
    EXPECT_TRUE(missing.get_IsSettled());
    EXPECT_TRUE(missing == FolderStamp(folder_ / "missing"));
    std::filesystem::create_directory(folder_ / "missing");
    EXPECT_FALSE(missing == FolderStamp(folder_ / "missing"));
}

TEST_F(FolderStampTest, IsSettledTwoSecondsAfterTheLastChange) {
    Write("a", "one");
    EXPECT_FALSE(Stamp().get_IsSettled());
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    EXPECT_TRUE(Stamp().get_IsSettled());
    // A change of the content alone keeps the folder's own time.
    Write("a", "two");
    EXPECT_FALSE(Stamp().get_IsSettled());
}

TEST(SurroundingsTest, ChangeWithTheVariablesThatDuckDBReads) {
    const TempFolder folder;
    const Surroundings surroundings(folder / "missing");
    EXPECT_TRUE(surroundings.AreUnchanged());
    for (const char* name : {"HOME", "HTTP_PROXY", "SLURM_CPUS_ON_NODE"}) {
        const char* before = std::getenv(name);
        const std::string value = before != nullptr ? before : "";
        setenv(name, "/changed", 1);
        EXPECT_FALSE(surroundings.AreUnchanged()) << name;
        before != nullptr ? setenv(name, value.c_str(), 1) : unsetenv(name);
        EXPECT_TRUE(surroundings.AreUnchanged()) << name;
    }
}

TEST(SurroundingsTest, AreNeverUnchangedWhenTheSecretsHadJustChanged) {
    const TempFolder folder;
    const Surroundings surroundings(folder.get_Path().string());
    EXPECT_FALSE(surroundings.AreUnchanged());
}

}  // namespace
}  // namespace mduckdb
