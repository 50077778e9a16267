#include "nbx/hooks.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "mshared/test_support.h"
#include "nbx/exception.h"

namespace nbx {
namespace {

namespace fs = std::filesystem;

TEST(Hooks, HaveTheirDefaults) {
    EXPECT_STREQ(gmDuckDB_backup_sfx, "duckdb_backup");
    EXPECT_EQ(mrsql::gpIsLocalSqlCall_PTR, nullptr);
    ASSERT_NE(mrsql::gServerBackupLocation, nullptr);
    EXPECT_FALSE(mrsql::gServerBackupLocation());
    EXPECT_TRUE(mrsql::IsLocalSqlCancellationAllowed());
}

TEST(Hooks, LetTheHostForbidCancellation) {
    mrsql::SetLocalSqlCancellationAllowed(false);
    EXPECT_FALSE(mrsql::IsLocalSqlCancellationAllowed());
    mrsql::SetLocalSqlCancellationAllowed(true);
    EXPECT_TRUE(mrsql::IsLocalSqlCancellationAllowed());
}

TEST(MironaInit3, MayBeCalledOftenAndOnAnyThread) {
    MironaInit3();
    MironaInit3();
    std::thread(MironaInit3).join();
}

/** The text with a 0 for each digit. */
std::string ShapeOf(std::string text) {
    for (char& c : text) {
        c = c >= '0' && c <= '9' ? '0' : c;
    }
    return text;
}

TEST(CreateBackupLocation, CreatesANewFolderNamedByTheTimeEachTime) {
    const TemporaryFolder folder;
    std::set<std::string> paths;
    for (int i = 0; i < 5; ++i) {
        const auto location = mrsql::gCreateBackupLocation(folder.LocationOf(""));
        const fs::path path = Narrow(location->get_PathText());
        EXPECT_TRUE(fs::is_directory(path));
        EXPECT_EQ(path.parent_path(), folder.get_Path());
        EXPECT_EQ(ShapeOf(path.filename().string()).substr(0, 20), "0000-00-00T00-00-00Z") << path;
        paths.insert(path.string());
    }
    EXPECT_EQ(paths.size(), 5U);
}

TEST(CreateBackupLocation, ReportsAMissingFolder) {
    const TemporaryFolder folder;
    EXPECT_THROW(mrsql::gCreateBackupLocation(folder.LocationOf("missing")), xException);
    EXPECT_THROW(mrsql::gCreateBackupLocation(nullptr), xException);
    std::ofstream(folder.get_Path() / "file") << "content";
    EXPECT_THROW(mrsql::gCreateBackupLocation(folder.LocationOf("file")), xException);
}

}  // namespace
}  // namespace nbx
