#include "nbx/hooks.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <thread>

#include "nbx/exception.h"
#include "test_support.h"

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

TEST(CreateBackupLocation, MakesANewFolderNamedByTheTimeEachTime) {
    const TemporaryFolder folder;
    const std::regex name("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}-[0-9]{2}-[0-9]{2}Z(-[0-9]+)?");
    std::set<std::string> paths;
    for (int i = 0; i < 5; ++i) {
        const auto location = mrsql::gCreateBackupLocation(folder.LocationOf(""));
        const fs::path path = Narrow(location->get_PathText());
        EXPECT_TRUE(fs::is_directory(path));
        EXPECT_EQ(path.parent_path(), folder.get_Path());
        EXPECT_TRUE(std::regex_match(path.filename().string(), name)) << path;
        paths.insert(path.string());
    }
    EXPECT_EQ(paths.size(), 5U);
}

TEST(CreateBackupLocation, ReportsAFolderThatIsNotThere) {
    const TemporaryFolder folder;
    EXPECT_THROW(mrsql::gCreateBackupLocation(folder.LocationOf("missing")), xException);
    EXPECT_THROW(mrsql::gCreateBackupLocation(nullptr), xException);
    std::ofstream(folder.get_Path() / "file") << "content";
    EXPECT_THROW(mrsql::gCreateBackupLocation(folder.LocationOf("file")), xException);
}

}  // namespace
}  // namespace nbx
