#include "nbx/location.h"

#include <filesystem>
#include <fstream>
#include <string>

#include "mshared/test_support.h"
#include "nbx/exception.h"
#include "support/working_folder.h"

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
    const auto location = CreateLocation(Wide("/usr/./share/../c//d.db"));
    EXPECT_EQ(Narrow(location->get_Text()), "/usr/./share/../c//d.db");
    EXPECT_EQ(Narrow(location->get_PathText()), "/usr/c/d.db");
    EXPECT_EQ(PathOf("/usr/missing/../c//d.db"), "/usr/missing/../c/d.db");
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
    EXPECT_THROW(folder->MakeChild(String(u"a\xD800", 2)), xException) << "a lone surrogate is no character";
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

/** The code of the `xException` that refuses the path; 0 when it is accepted. */
uint32_t RefusalOf(const String& path) {
    try {
        CreateLocation(path);
    } catch (const xException& error) {
        return error.get_Code();
    }
    return 0;
}

TEST(Location, FollowsALinkBeforeItGoesUp) {
    const TemporaryFolder folder;
    fs::create_directories(folder.get_Path() / "far/sub");
    fs::create_directory_symlink("far/sub", folder.get_Path() / "lnk");
    fs::create_directory_symlink("lnk", folder.get_Path() / "lnk2");
    const fs::path far = fs::canonical(folder.get_Path() / "far");
    std::ofstream(folder.get_Path() / "lnk/../x") << "far";
    for (const char* const name : {"lnk/../x", "lnk/./../x", "lnk//..//x", "lnk2/../x", "far/../lnk/../x"}) {
        const auto location = folder.LocationOf(name);
        EXPECT_EQ(Narrow(location->get_PathText()), (far / "x").string()) << name;
        EXPECT_TRUE(location->get_Exists()) << name;
    }
    EXPECT_EQ(Narrow(folder.LocationOf("lnk/../../x")->get_PathText()), (far.parent_path() / "x").string());
    EXPECT_EQ(Narrow(folder.LocationOf("lnk/x")->get_PathText()), (folder.get_Path() / "lnk/x").string())
        << "a link is resolved only before a \"..\"";
}

TEST(Location, GoesUpOnlyFromWhatTheSystemGoesUpFrom) {
    const TemporaryFolder folder;
    fs::create_directory(folder.get_Path() / "sub");
    std::ofstream(folder.get_Path() / "file") << "content";
    fs::create_symlink("nowhere/sub", folder.get_Path() / "dangling");
    fs::create_symlink("file", folder.get_Path() / "link_to_file");
    for (const char* const name :
         {"file/../file", "dangling/../file", "link_to_file/../file", "dangling/../sub/../file",
          "file/../../file", "missing/../file", "sub/missing/../../file"}) {
        EXPECT_FALSE(fs::exists(folder.get_Path() / name)) << name;
        EXPECT_FALSE(folder.LocationOf(name)->get_Exists()) << name;
    }
    EXPECT_TRUE(folder.LocationOf("sub/../file")->get_Exists());
    EXPECT_EQ(Narrow(folder.LocationOf("file/..")->get_Parent()->get_PathText()),
              (folder.get_Path() / "file/../..").string());
}

TEST(Location, RefusesARelativePathWhenTheWorkingFolderIsGone) {
    const TemporaryFolder folder;
    fs::create_directory(folder.get_Path() / "gone");
    const WorkingFolder working(folder.get_Path() / "gone");
    fs::remove(folder.get_Path() / "gone");
    EXPECT_EQ(RefusalOf(Wide("x.db")), kLocationErrorCode);
    EXPECT_EQ(RefusalOf(Wide("/x.db")), 0U);
    EXPECT_EQ(RefusalOf(Wide(":memory:")), 0U);
}

TEST(Location, RefusesAPathThatItsTextCannotHold) {
    const TemporaryFolder folder;
    const fs::path odd = folder.get_Path() / "odd\xFF";
    fs::create_directory(odd);
    fs::create_directory(odd / "sub");
    fs::create_directory_symlink(odd / "sub", folder.get_Path() / "lnk");
    EXPECT_EQ(RefusalOf(Wide((folder.get_Path() / "lnk/../x.db").string())), kLocationErrorCode);
    EXPECT_EQ(RefusalOf(String(u"/a\xD800", 3)), kLocationErrorCode) << "a lone surrogate is no character";
    const WorkingFolder working(odd);
    EXPECT_EQ(RefusalOf(Wide("x.db")), kLocationErrorCode);
    EXPECT_EQ(RefusalOf(Wide("/x.db")), 0U);
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
