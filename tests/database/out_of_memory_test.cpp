// A separate program, because it replaces the allocation functions of the whole process. The n-th allocation
// of the module and of mshared fails.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>

#include <gtest/gtest.h>

#include "engines/engine_files.h"
#include "engines/handle_registry.h"
#include "nbx/mrsql/registry.h"
#include "support/allocation_faults.h"
#include "support/second_process.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

namespace {

class DatabaseOutOfMemory : public testing::Test {
  protected:
    std::string Path() const { return folder / "test.db"; }
    void MakeFile() const {
        Execute(*host.Created(Path()), "CREATE TABLE t AS SELECT range + 1 AS i FROM range(3)");
    }
    /** Runs `operation` with its first, second, third ... allocation failing until none is left to fail;
       `check` receives whether it threw, each time. Returns how many failed. */
    static long FailEach(const std::function<void()>& operation, const std::function<void(bool)>& check) {
        for (long n = 1;; ++n) {
            bool has_thrown = false;
            allocation_faults::FailNth(static_cast<uint64_t>(n));
            try {
                operation();
            } catch (...) {
                has_thrown = true;
            }
            allocation_faults::Stop();
            const bool has_failed = allocation_faults::HasFailed();
            check(has_thrown);
            if (!has_failed || testing::Test::HasFailure()) {
                return n - 1;
            }
        }
    }

    TempFolder folder;
    TestHost host;
};

TEST_F(DatabaseOutOfMemory, AnOpeningThatFailsCountsNoUserAndLeavesTheObjectUsable) {
    MakeFile();
    const auto database = host.Database(Path());
    const long failures = FailEach([&] { database->Open(); },
                                   [&](bool has_thrown) {
                                       EXPECT_EQ(database->get_IsOpen(), !has_thrown);
                                       EXPECT_EQ(database->get_ConnectionCount(), has_thrown ? 0u : 1u);
                                       database->Open();
                                       EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
                                       database->Close();
                                       EXPECT_EQ(database->get_ConnectionCount(), 0u);
                                   });
    EXPECT_GT(failures, 0);
}

TEST_F(DatabaseOutOfMemory, AnOpeningThatJoinsOthersCountsNoUserWhenItFails) {
    MakeFile();
    const auto first = host.Opened(Path());
    const auto second = host.Database(Path());
    FailEach([&] { second->Open(); },
             [&](bool has_thrown) {
                 EXPECT_EQ(first->get_ConnectionCount(), has_thrown ? 1u : 2u);
                 second->Close();
                 EXPECT_EQ(QueryText(*first, "SELECT count(*) FROM t"), "3");
             });
}

TEST_F(DatabaseOutOfMemory, ARowIsStoredExactlyWhenTheExecutionWithParametersSucceeds) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    const auto row = nbx::MakeObject<nbx::ValueRow>();
    const int32_t seven = 7;
    row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLong(true, &seven, nullptr)));
    const nbx::String sql = S("INSERT INTO t VALUES (?)");
    int stored = 0;
    FailEach([&] { EXPECT_EQ(database->SqlExecute(sql, row), 1); },
             [&](bool has_thrown) {
                 stored += has_thrown ? 0 : 1;
                 EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), std::to_string(stored));
             });
}

TEST_F(DatabaseOutOfMemory, ARowIsStoredExactlyWhenTheExecutionOfAScriptSucceeds) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    const nbx::String sql = S("INSERT INTO t VALUES (7)");
    int stored = 0;
    FailEach([&] { EXPECT_EQ(database->SqlExecute(sql, nullptr), 1); },
             [&](bool has_thrown) {
                 stored += has_thrown ? 0 : 1;
                 EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), std::to_string(stored));
             });
}

TEST_F(DatabaseOutOfMemory, ARunThatReportsNeverThrowsAndReportsWhatIsStored) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    int stored = 0;
    const auto statement = database->CreateStatement(S("INSERT INTO t VALUES (7)"));
    nbx::mrsql::DuckDBExecutionResult outcome;
    FailEach([&] { outcome = statement->TryExecuteAll(); },
             [&](bool has_thrown) {
                 EXPECT_FALSE(has_thrown);
                 stored += static_cast<int>(outcome.statements_executed);
                 EXPECT_EQ(outcome.error_code == 0, outcome.statements_executed == 1);
                 EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), std::to_string(stored));
             });
}

struct Reading : mduckdb::Configuration {
    Reading() { SetAccessMode("READ_ONLY"); }
};

/** The list is made in this program, so that its allocations fail too. */
class FilesOutOfMemory : public DatabaseOutOfMemory {
  protected:
    using Turn = mduckdb::FileTurn;

    static nbx::I_OpenFiles& get_List() {
        static nbx::I_OpenFiles& list = nbx::MakeOpenFiles();
        return list;
    }
    void SetUp() override { MakeFile(); }
    void TearDown() override { EXPECT_EQ(get_List().CountEngines(), 0u); }
    /** Asks in another thread, which would wait forever for a turn that was not given back. */
    uint32_t CountUsers() {
        auto count = std::async(std::launch::async, [this] { return Turn(files, Path()).get_UserCount(); });
        if (count.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
            ADD_FAILURE() << "the turn on the file was not given back";
            std::quick_exit(1);
        }
        return count.get();
    }

    mduckdb::EngineFiles files{get_List()};
};

TEST_F(FilesOutOfMemory, ATurnThatFailsIsGivenBackAndAnOpeningLeavesTheListAsItWas) {
    mduckdb::SharedEngine engine;
    for (const bool is_reader : {false, true}) {
        // A user beside the one that fails, whose engine keeps the file on the list.
        mduckdb::SharedEngine user;
        std::string error;
        if (is_reader) {
            user = Turn(files, Path()).OpenReader(Path(), Reading(), error);
            ASSERT_NE(user, nullptr) << error;
        }
        const unsigned others = is_reader ? 1 : 0;
        const long failures = FailEach(
            [&] {
                std::string reason;
                Turn turn(files, Path());
                engine = is_reader ? turn.OpenReader(Path(), Reading(), reason)
                                   : turn.OpenWriter(Path(), mduckdb::Configuration(), reason);
            },
            [&](bool has_thrown) {
                const unsigned expected = others + (has_thrown ? 0 : 1);
                EXPECT_EQ(engine == nullptr, has_thrown);
                EXPECT_EQ(get_List().CountEngines(), expected);
                EXPECT_EQ(CountUsers(), expected);
                engine.reset();
                EXPECT_EQ(CountUsers(), others);
            });
        EXPECT_GT(failures, 5);
    }
}

TEST_F(FilesOutOfMemory, AJoinThatFailsCountsNoUser) {
    std::string error;
    const mduckdb::SharedEngine first =
        Turn(files, Path()).OpenWriter(Path(), mduckdb::Configuration(), error);
    ASSERT_NE(first, nullptr) << error;
    mduckdb::SharedEngine second;
    const long failures = FailEach([&] { second = Turn(files, Path()).JoinWriter(); },
                                   [&](bool has_thrown) {
                                       EXPECT_EQ(CountUsers(), has_thrown ? 1u : 2u);
                                       second.reset();
                                       EXPECT_EQ(CountUsers(), 1u);
                                   });
    EXPECT_GT(failures, 1);
}

TEST_F(FilesOutOfMemory, APlaceThatCannotBeClaimedIsNotClaimed) {
    const mduckdb::FileLook file = mduckdb::FileSystem::Get().Look(Path());
    const mduckdb::FileLook place =
        mduckdb::FileSystem::Get().Look(folder / "a name that is too long to be kept without an allocation");
    nbx::OpenFile* const taken = get_List().Take(file.get_Identity());
    const long failures = FailEach(
        [&] { get_List().ClaimPlace(taken, place.get_Identity()); },
        [&](bool has_thrown) { EXPECT_EQ(get_List().Matches(taken, place.get_Identity()), !has_thrown); });
    EXPECT_GT(failures, 0);
    get_List().Release(taken);
}

TEST_F(FilesOutOfMemory, ALockThatFailsIsNotHeld) {
    const auto is_free = [this] {
        const int descriptor = open(Path().c_str(), O_RDWR | O_CLOEXEC);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        const bool is_unlocked = fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type == F_UNLCK;
        close(descriptor);
        return is_unlocked;
    };
    const mduckdb::FileLook look = mduckdb::FileSystem::Get().Look(Path());
    mduckdb::FileLook other = look;
    other.inode = 0;
    std::string reason;
    for (const mduckdb::FileLook& file : {look, other}) {
        mduckdb::FileLock lock;
        bool is_taken = false;
        FailEach([&] { is_taken = lock.Take(file, reason); },
                 [&](bool has_thrown) {
                     EXPECT_EQ(is_free(), has_thrown || !is_taken);
                     EXPECT_EQ(lock.get_Descriptor() < 0, has_thrown || !is_taken);
                     lock.Release();
                     reason = std::string();
                 });
    }
    const HeldElsewhere holder(Path(), true);
    mduckdb::FileLock lock;
    const long failures = FailEach([&] { lock.Take(look, reason); },
                                   [&](bool has_thrown) {
                                       EXPECT_LT(lock.get_Descriptor(), 0);
                                       EXPECT_EQ(reason.empty(), has_thrown);
                                   });
    EXPECT_GT(failures, 0);
}

TEST_F(FilesOutOfMemory, ADropThatFailsLeavesTheDatabaseWithItsLog) {
    namespace fs = std::filesystem;
    const auto database = host.Database(Path());
    std::ofstream(Path() + ".wal.recovery") << "log";
    const long failures = FailEach([&] { database->Drop(); },
                                   [&](bool has_thrown) {
                                       EXPECT_EQ(fs::exists(Path()), has_thrown);
                                       EXPECT_EQ(fs::exists(Path() + ".wal.recovery"), has_thrown);
                                       EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 0u);
                                       if (!has_thrown) {
                                           MakeFile();
                                       }
                                       std::ofstream(Path() + ".wal.recovery") << "log";
                                   });
    EXPECT_GT(failures, 0);
    fs::remove(Path() + ".wal.recovery");
}

TEST_F(FilesOutOfMemory, ARegistryThatFailsCountsNoUser) {
    const mduckdb::EngineLockScope lock;
    mduckdb::HandleRegistry& registry = mduckdb::HandleRegistry::Get();
    const nbx::String key = S(Path());
    const long failures = FailEach([&]() NBX_NO_THREAD_SAFETY_ANALYSIS { registry.AddUser(key); },
                                   [&](bool has_thrown) NBX_NO_THREAD_SAFETY_ANALYSIS {
                                       EXPECT_EQ(registry.Contains(key), !has_thrown);
                                       EXPECT_EQ(registry.get_UserCount(key), has_thrown ? 0u : 1u);
                                       if (!has_thrown) {
                                           registry.RemoveUser(key);
                                       }
                                   });
    EXPECT_GT(failures, 0);
}

}  // namespace
