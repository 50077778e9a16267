#include "nbx/location.h"

#include <filesystem>
#include <fstream>
#include <string>

#include "mshared/test_support.h"
#include "nbx/exception.h"

namespace nbx {
namespace {

namespace fs = std::filesystem;

std::string PathOf(const std::string& text) {
    return Narrow(CreateLocation(Wide(text))->get_PathText());
}

I_Folder* FolderOf(const smart_ptr<I_Location>& location) {
    return static_cast<I_Folder*>(location->QueryInterface(kFolderInterfaceId));
}

TEST(Location, KeepsItsTextAndNormalisesItsPath) {
    const auto location = CreateLocation(Wide("/a/./b/../c//d.db"));
    EXPECT_EQ(Narrow(location->get_Text()), "/a/./b/../c//d.db");
    EXPECT_EQ(Narrow(location->get_PathText()), "/a/c/d.db");
    EXPECT_EQ(location->get_RefsCount(), 1U);
    EXPECT_EQ(PathOf("/a/b/"), "/a/b");
    EXPECT_EQ(PathOf("/a/b/."), "/a/b");
    EXPECT_EQ(PathOf("/"), "/");
    EXPECT_EQ(PathOf("/.."), "/");
    EXPECT_EQ(PathOf("//a"), "/a");
    EXPECT_EQ(PathOf("x.db"), (fs::current_path() / "x.db").string());
    EXPECT_EQ(PathOf("."), fs::current_path().string());
    EXPECT_EQ(PathOf("/\xC3\xA4 'q'.db"), "/\xC3\xA4 'q'.db");
}

TEST(Location, LeavesTheInMemoryDatabaseAndTheEmptyTextAlone) {
    for (const char* const text : {":memory:", ""}) {
        const auto location = CreateLocation(Wide(text));
        EXPECT_EQ(Narrow(location->get_Text()), text);
        EXPECT_EQ(Narrow(location->get_PathText()), text);
        EXPECT_FALSE(location->get_Exists());
        EXPECT_FALSE(location->get_Parent());
        EXPECT_EQ(FolderOf(location), nullptr);
    }
}

TEST(Location, KnowsItsParentAndItsChildren) {
    const auto location = CreateLocation(Wide("/a/b.db"));
    EXPECT_EQ(Narrow(location->get_Parent()->get_PathText()), "/a");
    EXPECT_EQ(Narrow(location->get_Parent()->get_Parent()->get_PathText()), "/");
    EXPECT_FALSE(location->get_Parent()->get_Parent()->get_Parent());
    const auto folder = CreateLocation(Wide("/backup"));
    EXPECT_EQ(Narrow(folder->MakeChild(Wide("x.db"))->get_PathText()), "/backup/x.db");
    EXPECT_EQ(Narrow(folder->MakeChild(Wide("/data/x.db.duckdb_backup"))->get_PathText()),
              "/backup/x.db.duckdb_backup");
    EXPECT_EQ(Narrow(folder->MakeChild(Wide("x/"))->get_PathText()), "/backup/x");
    EXPECT_EQ(Narrow(folder->MakeChild(Wide(":memory:.sfx"))->get_PathText()), "/backup/:memory:.sfx");
}

TEST(Location, CreatesNoChildWithoutAName) {
    const auto folder = CreateLocation(Wide("/backup"));
    for (const char* const name : {"", "/", "//", ".", "..", "a/.."}) {
        EXPECT_THROW(folder->MakeChild(Wide(name)), xException) << name;
    }
    EXPECT_THROW(CreateLocation(Wide(":memory:"))->MakeChild(Wide("x")), xException);
}

TEST(Location, SeesWhatExists) {
    const TemporaryFolder folder;
    const auto location = folder.LocationOf("x");
    EXPECT_FALSE(location->get_Exists());
    EXPECT_FALSE(FolderOf(location)->get_Exists());
    std::ofstream(folder.get_Path() / "x") << "content";
    EXPECT_TRUE(location->get_Exists());
    EXPECT_FALSE(FolderOf(location)->get_Exists()) << "a file is no folder";
    EXPECT_TRUE(FolderOf(location->get_Parent())->get_Exists());
}

TEST(Location, OffersNoOtherInterface) {
    const auto location = CreateLocation(Wide("/a"));
    EXPECT_NE(FolderOf(location), nullptr);
    EXPECT_EQ(location->QueryInterface(401), nullptr);
}

TEST(Folder, IsCreatedWithItsParents) {
    const TemporaryFolder folder;
    const auto location = folder.LocationOf("a/b/c");
    FolderOf(location)->Create();
    EXPECT_TRUE(fs::is_directory(folder.get_Path() / "a/b/c"));
    EXPECT_NO_THROW(FolderOf(location)->Create());
}

TEST(Folder, IsNotCreatedInPlaceOfAFile) {
    const TemporaryFolder folder;
    std::ofstream(folder.get_Path() / "x") << "content";
    for (const char* const name : {"x", "x/y"}) {
        try {
            FolderOf(folder.LocationOf(name))->Create();
            ADD_FAILURE() << name;
        } catch (const xException& error) {
            EXPECT_EQ(error.get_Code(), kFileErrorCode);
            EXPECT_EQ(error.get_Text(0), folder.LocationOf(name)->get_PathText());
        }
    }
}

TEST(PrepareFolder, CreatesTheFolderAndReturnsItsLocation) {
    const TemporaryFolder folder;
    const auto backup = PrepareFolder(folder.LocationOf(""), "Backup/");
    EXPECT_EQ(Narrow(backup->get_PathText()), (folder.get_Path() / "Backup").string());
    EXPECT_TRUE(fs::is_directory(folder.get_Path() / "Backup"));
    const auto again = PrepareFolder(folder.LocationOf(""), "Backup");
    EXPECT_EQ(again->get_PathText(), backup->get_PathText());
    PrepareFolder(folder.LocationOf(""), "x/y/z");
    EXPECT_TRUE(fs::is_directory(folder.get_Path() / "x/y/z"));
}

TEST(PrepareFolder, ReportsAFolderThatCannotBeCreated) {
    const TemporaryFolder folder;
    std::ofstream(folder.get_Path() / "x") << "content";
    EXPECT_THROW(PrepareFolder(folder.LocationOf("x"), "Backup/"), xException);
    EXPECT_THROW(PrepareFolder(nullptr, "Backup/"), xException);
    EXPECT_THROW(PrepareFolder(CreateLocation(Wide(":memory:")), "Backup/"), xException);
    EXPECT_FALSE(fs::exists(":memory:"));
}

TEST(Location, RefusesAPathWithANulCharacter) {
    EXPECT_THROW(CreateLocation(String(u"a\0b", 3)), xException);
}

}  // namespace
}  // namespace nbx
