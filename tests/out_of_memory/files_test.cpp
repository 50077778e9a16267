#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "each_allocation.h"
#include "engines/engine_files.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "nbx/mrsql/registry.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

namespace mduckdb::test {
namespace {

using nbx::mrsql::I_DuckDBDatabase;
using Database = nbx::smart_ptr<I_DuckDBDatabase>;
namespace fs = std::filesystem;

class FilesOutOfMemory : public testing::Test {
  protected:
    std::string Path(const char* name = "test.db") const { return folder_ / name; }
    void MakeFile(const std::string& path, int rows = 3) const {
        Execute(*host_.Created(path),
                "CREATE TABLE t AS SELECT range AS i FROM range(" + std::to_string(rows) + ")");
    }
    /** Whether another thread gets the turn on the file: this thread has given it back. */
    bool IsTurnFree(const std::string& path) const {
        auto done = std::make_shared<std::promise<void>>();
        auto future = done->get_future();
        std::thread([done, path] {
            EngineFiles::Get().IsInUse(path);
            done->set_value();
        }).detach();
        return future.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    }
    std::string LookAt(I_DuckDBDatabase& database) const {
        std::string seen = database.get_IsOpen() ? "open" : "closed";
        seen += database.get_IsReadOnly() ? " for reading" : "";
        seen += ", users " + std::to_string(database.get_ConnectionCount());
        seen += ", references " + std::to_string(database.get_RefsCount());
        seen += ", engines " + std::to_string(EngineFiles::Get().get_EngineCount());
        return seen + (IsTurnFree(Path()) ? "" : ", the turn is taken");
    }
    std::string CountRows(const std::string& path) const {
        return fs::exists(path) ? QueryText(*host_.Opened(path), "SELECT count(*) FROM t") : "no file";
    }
    /** An operation on one database object that returns nothing. */
    Operation On(const Database& database, void (I_DuckDBDatabase::*call)()) const {
        Operation operation;
        operation.act = [database, call] {
            (*database.*call)();
            return std::string();
        };
        operation.prepare = [database] { database->Close(); };
        operation.look = [this, database] { return LookAt(*database); };
        return operation;
    }

    TempFolder folder_;
    TestHost host_;
};

TEST_F(FilesOutOfMemory, AnOpeningCountsNoUserWhenItFails) {
    MakeFile(Path());
    EXPECT_GT(FailEach(On(host_.Database(Path()), &I_DuckDBDatabase::Open)), 0U);
}

TEST_F(FilesOutOfMemory, AnOpeningThatJoinsOthersCountsNoUserWhenItFails) {
    MakeFile(Path());
    const Database first = host_.Opened(Path());
    EXPECT_GT(FailEach(On(host_.Database(Path()), &I_DuckDBDatabase::Open)), 0U);
    EXPECT_EQ(QueryText(*first, "SELECT count(*) FROM t"), "3");
}

TEST_F(FilesOutOfMemory, AnOpeningInMemoryCountsNoUserWhenItFails) {
    EXPECT_GT(FailEach(On(host_.Database(":memory:"), &I_DuckDBDatabase::Open)), 0U);
}

TEST_F(FilesOutOfMemory, AnOpeningForReadingIsStillOneAfterAFailure) {
    MakeFile(Path());
    const Database database = host_.Database(Path());
    Operation operation = On(database, &I_DuckDBDatabase::Open);
    operation.prepare = [&database] {
        database->Close();
        nbx::mrsql::DuckDBDatabaseOptions options;
        options.read_write = false;
        options.temp_directory = S("/tmp/a folder with a name that is not short");
        database->put_Options(options);
    };
    EXPECT_GT(FailEach(operation), 0U);
}

TEST_F(FilesOutOfMemory, ACreationCountsNoUserWhenItFails) {
    const Database database = host_.Database(Path());
    Operation operation = On(database, &I_DuckDBDatabase::Create);
    // Where the creation is guarded its error has the text.
    operation.errors.push_back("xDuckDBError 72501 [" + Path() + "] [std::bad_alloc]");
    operation.prepare = [&] {
        database->Close();
        fs::remove(Path());
    };
    operation.samples = 12;
    EXPECT_GT(FailEach(operation), 0U);
    database->put_BlockSize(16384);
    database->put_StorageVersion(S("v1.2.0"));
    EXPECT_GT(FailEach(operation), 0U);
    // In the place of a file that is there.
    operation.prepare = [&] { database->Close(); };
    EXPECT_GT(FailEach(operation), 0U);
}

TEST_F(FilesOutOfMemory, AClosingAlwaysCloses) {
    MakeFile(Path());
    const Database database = host_.Database(Path());
    Operation operation = On(database, &I_DuckDBDatabase::Close);
    nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> statement;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> cursor;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> result;
    operation.errors.clear();
    operation.prepare = [&] {
        database->Open();
        statement = database->CreateStatement(S("SELECT 1"));
        statement->PrepareNext();
        cursor = database->SqlSelect(S("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
        result = database->SqlQuery(S("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    };
    FailEach(operation);
    EXPECT_FALSE(database->get_IsOpen());
}

TEST_F(FilesOutOfMemory, ADropDeletesTheFileWithItsLogOrLeavesBoth) {
    const Database database = host_.Database(Path());
    Operation operation = On(database, &I_DuckDBDatabase::Drop);
    operation.prepare = [&] {
        fs::remove(Path());
        MakeFile(Path());
        std::ofstream(Path("test.db.wal")) << "a log";
    };
    operation.look = [&] {
        return LookAt(*database) + (fs::exists(Path()) ? ", a file" : "") +
               (fs::exists(Path("test.db.wal")) ? ", a log" : "");
    };
    EXPECT_GT(FailEach(operation), 0U);
}

TEST_F(FilesOutOfMemory, AProbeOfAFileIsRightOrAnError) {
    MakeFile(Path());
    std::ofstream(Path("text")) << "a text that is longer than the mark of a database";
    MakeFile(Path("open.db"));
    const Database open = host_.Opened(Path("open.db"));
    for (const char* name : {"test.db", "text", "open.db", "missing"}) {
        const auto location = Location(Path(name));
        Operation operation;
        operation.act = [&] { return std::string(host_->IsDuckDBFile(location) ? "yes" : "no"); };
        operation.look = [&] { return std::string(IsTurnFree(Path(name)) ? "free" : "taken"); };
        EXPECT_GT(FailEach(operation), 0U) << name;
    }
}

TEST_F(FilesOutOfMemory, AnAttachmentIsThereOrNot) {
    MakeFile(Path("other.db"));
    const Database database = host_.Created(Path());
    const nbx::String attach = S("ATTACH '" + Path("other.db") + "' AS other");
    const nbx::String detach = S("DETACH other");
    Operation operation;
    operation.look = [&] {
        return QueryText(*database, "SELECT count(*) FROM duckdb_databases() WHERE database_name = 'other'");
    };
    operation.prepare = [&] { Execute(*database, "DETACH DATABASE IF EXISTS other"); };
    operation.act = [&] {
        database->SqlExecute(attach, nullptr);
        return std::string();
    };
    EXPECT_GT(FailEach(operation), 0U);
    operation.prepare = [&] {
        Execute(*database, "ATTACH IF NOT EXISTS '" + Path("other.db") + "' AS other");
    };
    operation.act = [&] {
        database->SqlExecute(detach, nullptr);
        return std::string();
    };
    EXPECT_GT(FailEach(operation), 0U);
}

TEST_F(FilesOutOfMemory, ABackupThatFailsLeavesTheDatabaseAsItWas) {
    MakeFile(Path());
    const Database database = host_.Opened(Path());
    const auto folder = nbx::PrepareFolder(Location(Path())->get_Parent(), "backups/");
    Operation operation;
    operation.act = [&] {
        database->Backup(folder);
        return std::string();
    };
    operation.look = [&] { return LookAt(*database); };
    operation.samples = 16;
    EXPECT_GT(FailEach(operation), 0U);
    database->Close();  // would wait for an export that never ended
}

/** A backup of a database of five rows, for the restores. */
class RestoreOutOfMemory : public FilesOutOfMemory {
  protected:
    RestoreOutOfMemory() {
        nbx::mrsql::gCreateBackupLocation = [](const nbx::smart_ptr<nbx::I_Location>& folder) {
            return folder;
        };
        MakeFile(Path("source.db"), 5);
        const Database source = host_.Opened(Path("source.db"));
        backup_ = nbx::PrepareFolder(Location(Path())->get_Parent(), "backup/");
        source->Backup(backup_);
        snapshot_ = Location(Path("snapshot.db"));
        static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
            source->QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId))
            ->Snapshot(snapshot_);
    }
    /** Restores over a file of three rows. */
    Operation Restoring(std::function<Database()> restore) {
        Operation operation;
        operation.act = [restore = std::move(restore)] {
            const Database database = restore();
            return std::string(database->get_IsOpen() ? "open" : "closed");
        };
        operation.prepare = [this] { MakeFile(Path()); };
        operation.look = [this] {
            std::size_t files = 0;
            for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder_.get_Path())) {
                ++files;
            }
            return CountRows(Path()) + " rows, engines " +
                   std::to_string(EngineFiles::Get().get_EngineCount()) + ", files " + std::to_string(files) +
                   (IsTurnFree(Path()) ? "" : ", the turn is taken");
        };
        operation.errors.push_back("xDuckDBError 72501 [" + Path() + "] [std::bad_alloc]");
        operation.samples = 12;
        return operation;
    }

    nbx::smart_ptr<nbx::I_Location> backup_;
    nbx::smart_ptr<nbx::I_Location> snapshot_;
};

TEST_F(RestoreOutOfMemory, ARestoreReplacesTheFileWholeOrLeavesIt) {
    const auto target = Location(Path());
    EXPECT_GT(FailEach(Restoring([&] { return host_->RestoreDatabase(target, backup_); })), 0U);
}

TEST_F(RestoreOutOfMemory, ARestoreOfASnapshotReplacesTheFileWholeOrLeavesIt) {
    const auto target = Location(Path());
    auto* restore = static_cast<nbx::mrsql::I_DuckDBRestore*>(
        (*host_).QueryInterface(nbx::mrsql::kDuckDBRestoreInterfaceId));
    EXPECT_GT(FailEach(Restoring([&] { return restore->RestoreSnapshot(target, snapshot_); })), 0U);
}

}  // namespace
}  // namespace mduckdb::test
