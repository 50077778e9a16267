#include <duckdb.h>

#include <algorithm>

#include <filesystem>
#include <fstream>

#include "database_test_base.h"
#include "nbx/engine_lock.h"
#include "nbx/hooks.h"

namespace {

using Extension = DatabaseTest;

TEST_F(Extension, VersionIsDuckDBs) {
    EXPECT_STREQ(host->get_LibraryVersion(), duckdb_library_version());
}

TEST_F(Extension, OnlyTheExactPathIsInMemory) {
    EXPECT_TRUE(host->IsInMemoryPath(S(":memory:")));
    EXPECT_FALSE(host->IsInMemoryPath(S(":MEMORY:")));
    EXPECT_FALSE(host->IsInMemoryPath(S(" :memory:")));
    EXPECT_FALSE(host->IsInMemoryPath(S(":memory: ")));
    EXPECT_FALSE(host->IsInMemoryPath(S("")));
}

TEST_F(Extension, NullLocationsAreRefusedWithTheirCodes) {
    EXPECT_EQ(Thrown([&] { host->CreateDatabase(nullptr); }), "xDBError 51501");
    EXPECT_EQ(Thrown([&] { host->RestoreDatabase(nullptr, nullptr); }), "xDBError 51501");
    EXPECT_EQ(Thrown([&] { host->RestoreDatabase(Location(Path()), nullptr); }), "xDBError 66000");
    EXPECT_EQ(Thrown([&] { host->RestoreDatabase(Location(Path()), Location(Path("none"))); }),
              "xDBError 66000");
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(Extension, CreateDatabaseReleasesTheLocationAndTouchesNoFile) {
    auto location = Location(Path());
    auto database = host->CreateDatabase(location);
    EXPECT_EQ(location->get_RefsCount(), 2u);
    EXPECT_EQ(database->get_RefsCount(), 1u);
    EXPECT_FALSE(database->get_IsOpen());
    database = nullptr;
    EXPECT_EQ(location->get_RefsCount(), 1u);
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

struct ProbeCase {
    const char* name;
    std::string content;
    bool answer;
};

class FileProbe : public DatabaseTest, public testing::WithParamInterface<ProbeCase> {};

TEST_P(FileProbe, LooksForTheMarkAtByteEight) {
    std::ofstream(Path(), std::ios::binary) << GetParam().content;
    EXPECT_EQ(host->IsDuckDBFile(Location(Path())), GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(Files, FileProbe,
                         testing::Values(ProbeCase{"empty", "", true}, ProbeCase{"one", "D", false},
                                         ProbeCase{"eight", "12345678", false},
                                         ProbeCase{"nine", "12345678D", false},
                                         ProbeCase{"eleven", "12345678DUC", false},
                                         ProbeCase{"twelve", "12345678DUCK", true},
                                         ProbeCase{"longer", "????????DUCK and more", true},
                                         ProbeCase{"lower case", "12345678duck", false},
                                         ProbeCase{"shifted", "1234567DUCK1", false}),
                         [](const auto& tested) {
                             std::string name = tested.param.name;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

TEST_F(Extension, AnUnreadableFileIsNotADuckDBFile) {
    EXPECT_FALSE(host->IsDuckDBFile(Location(Path("missing"))));
    EXPECT_FALSE(host->IsDuckDBFile(nullptr));
    EXPECT_FALSE(host->IsDuckDBFile(Location(":memory:")));
    auto location = Location(Path("missing"));
    host->IsDuckDBFile(location);
    EXPECT_EQ(location->get_RefsCount(), 1u);
}

TEST_F(Extension, ProbingAnOpenDatabaseKeepsItsLock) {
    MakeFile();
    const auto database = host.Opened(Path());
    EXPECT_TRUE(host->IsDuckDBFile(Location(Path())));
    EXPECT_NE(TryOpenElsewhere(Path(), true), "ok");
    EXPECT_NE(TryOpenElsewhere(Path(), false), "ok");
}

TEST_F(Extension, ARealDatabaseFileIsRecognised) {
    EXPECT_TRUE(host->IsDuckDBFile(Location(MakeFile())));
}

TEST_F(Extension, IsDatabaseOpenFollowsOpeningAndClosing) {
    const auto database = host.Database(Path());
    const nbx::String key = database->get_Key();
    EXPECT_FALSE(host->IsDatabaseOpen(key));
    database->get_ConnectionCount();
    EXPECT_FALSE(host->IsDatabaseOpen(key));
    database->Create();
    EXPECT_TRUE(host->IsDatabaseOpen(key));
    EXPECT_FALSE(host->IsDatabaseOpen(S(Path() + "x")));
    database->Close();
    EXPECT_FALSE(host->IsDatabaseOpen(key));
}

TEST_F(Extension, AThreadThatHoldsTheEngineLockKeepsIt) {
    nbx::GetGlobalEngineLock().lock();
    nbx::gIsGlobalLockTaken.put(true);
    EXPECT_FALSE(host->IsDatabaseOpen(S(Path())));
    EXPECT_TRUE(nbx::gIsGlobalLockTaken.get());
    {
        const auto database = host.Created(Path());
        EXPECT_TRUE(nbx::gIsGlobalLockTaken.get());
        database->Close();
        EXPECT_TRUE(nbx::gIsGlobalLockTaken.get());
    }
    nbx::gIsGlobalLockTaken.put(false);
    nbx::GetGlobalEngineLock().unlock();
}

TEST_F(Extension, TheLockIsReleasedWhenTheWorkThrows) {
    const auto database = host.Database(Path());
    EXPECT_NE(Thrown([&] { database->Open(); }), "none");
    EXPECT_FALSE(nbx::gIsGlobalLockTaken.get());
    if (nbx::GetGlobalEngineLock().try_lock()) {
        nbx::GetGlobalEngineLock().unlock();
    } else {
        ADD_FAILURE() << "the engine lock is still held";
    }
}

TEST_F(Extension, ClientCursorsAreDistinguishedFromServerCursors) {
    const auto database = host.Created(":memory:");
    const auto client = database->SqlSelect(S("SELECT 1, 2"), nbx::mrsql::kClientCursor, nullptr);
    const auto server = database->SqlSelect(S("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    EXPECT_TRUE(host->IsClientCursor(client));
    EXPECT_FALSE(host->IsClientCursor(server));
    EXPECT_FALSE(host->IsClientCursor(nullptr));
    const auto rows = host->get_ClientCursorRows(client);
    ASSERT_NE(rows, nullptr);
    EXPECT_EQ(host->get_ClientCursorRows(server), nullptr);
    EXPECT_EQ(host->get_ClientCursorRows(nullptr), nullptr);
}

}  // namespace
