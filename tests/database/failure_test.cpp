#include <filesystem>
#include <functional>

#include "database_test_base.h"

// Nothing is left behind when one of DuckDB's calls fails.

namespace {

using duckdb_faults::FailCall;

class DatabaseFailure : public DatabaseTest {
  protected:
    void SetUp() override {
        MakeFile();
        DatabaseTest::SetUp();
    }
    /** Opens or creates, and expects the exception and that nothing is left behind. */
    void ExpectFailure(const std::string& expected, const std::function<void()>& action,
                       const Database& database, uint32_t users = 0) {
        EXPECT_EQ(Thrown(action), expected);
        EXPECT_FALSE(database->get_IsOpen());
        EXPECT_FALSE(database->get_IsReadOnly());
        EXPECT_EQ(database->get_ConnectionCount(), users);
        if (users == 0) {
            EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
            EXPECT_EQ(TryOpenElsewhere(Path(), true), "ok");
            EXPECT_FALSE(mduckdb::EngineFiles::Get().IsInUse(Path()));
            database->Open();
            EXPECT_TRUE(database->get_IsOpen());
        }
    }
};

TEST_F(DatabaseFailure, OpenWithoutAConfiguration) {
    const auto database = host.Database(Path());
    FailCall("duckdb_create_config", 1);
    ExpectFailure(
        "std: Failed to create DuckDB config", [&] { database->Open(); }, database);
}

TEST_F(DatabaseFailure, OpenWhenBothOpeningsFailWithoutAText) {
    const auto database = host.Database(Path());
    FailCall("duckdb_open_ext", 1);
    FailCall("duckdb_open_ext", 2);
    ExpectFailure(
        "xException 99000 [Failed to open DuckDB database]", [&] { database->Open(); }, database);
}

TEST_F(DatabaseFailure, OpenWhenOnlyTheWritingOpeningFails) {
    const auto database = host.Database(Path());
    FailCall("duckdb_open_ext", 1);
    database->Open();
    EXPECT_TRUE(database->get_IsReadOnly());
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
}

TEST_F(DatabaseFailure, ReadOnlyOpenIsNotTriedAgain) {
    const auto database = host.Database(Path());
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.read_write = false;
    database->put_Options(options);
    FailCall("duckdb_open_ext", 1);
    ExpectFailure(
        "xException 99000 [Failed to open DuckDB database]", [&] { database->Open(); }, database);
}

TEST_F(DatabaseFailure, OpenWithoutAConnection) {
    const auto database = host.Database(Path());
    FailCall("duckdb_connect", 1);
    ExpectFailure(
        "xException 99000 [Failed to create DuckDB connection]", [&] { database->Open(); }, database);
}

TEST_F(DatabaseFailure, ReadOnlyOpenWithoutAConnection) {
    const auto database = host.Database(Path());
    FailCall("duckdb_open_ext", 1);
    FailCall("duckdb_connect", 1);
    ExpectFailure(
        "xException 99000 [Failed to create DuckDB connection]", [&] { database->Open(); }, database);
}

TEST_F(DatabaseFailure, OpenOfASharedEngineWithoutAConnectionLeavesTheOthersAlone) {
    const auto first = host.Opened(Path());
    const auto second = host.Database(Path());
    FailCall("duckdb_connect", 1);
    ExpectFailure(
        "xException 99000 [Failed to create DuckDB connection]", [&] { second->Open(); }, second, 1);
    EXPECT_EQ(QueryText(*first, "SELECT count(*) FROM t"), "3");
    EXPECT_NE(TryOpenElsewhere(Path(), false), "ok");
}

TEST_F(DatabaseFailure, TheJsonSettingMayFail) {
    const auto database = host.Database(Path());
    FailCall("duckdb_query", 1);
    database->Open();
    EXPECT_EQ(Thrown([&] { Execute(*database, "SELECT * FROM missing"); }).find('{'), std::string::npos);
}

TEST_F(DatabaseFailure, CreateWithoutAConfiguration) {
    const auto database = host.Database(Path());
    FailCall("duckdb_create_config", 1);
    const std::string expected = Refusal(Path(), "Failed to create DuckDB config");
    EXPECT_EQ(Thrown([&] { database->Create(); }), expected);
    EXPECT_FALSE(database->get_IsOpen());
    EXPECT_EQ(database->get_ConnectionCount(), 0u);
}

TEST_F(DatabaseFailure, CreateWhenOpeningFailsWithoutAText) {
    const auto database = host.Database(Path());
    FailCall("duckdb_open_ext", 1);
    EXPECT_EQ(Thrown([&] { database->Create(); }), Refusal(Path(), "Unknown DuckDB database open error"));
    EXPECT_FALSE(database->get_IsOpen());
    EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
    EXPECT_FALSE(mduckdb::EngineFiles::Get().IsInUse(Path()));
}

TEST_F(DatabaseFailure, CreateWithoutAConnection) {
    const auto database = host.Database(Path());
    FailCall("duckdb_connect", 1);
    ExpectFailure(
        Refusal(Path(), "Failed to create DuckDB connection"), [&] { database->Create(); }, database);
}

TEST_F(DatabaseFailure, CreateWithAFormatWhenItsAuxiliaryEngineFails) {
    // With an old file, the format is tried before that is deleted.
    for (const bool is_old_there : {true, false}) {
        const auto database = host.Database(Path());
        database->put_BlockSize(16384);
        FailCall("duckdb_open_ext", 1);
        EXPECT_EQ(Thrown([&] { database->Create(); }), Refusal(Path(), "Unknown DuckDB database open error"));
        FailCall("duckdb_connect", 1);
        EXPECT_EQ(Thrown([&] { database->Create(); }), Refusal(Path(), "Failed to create DuckDB connection"));
        FailCall("duckdb_query", 1);
        EXPECT_EQ(Thrown([&] { database->Create(); }), Refusal(Path(), "Unknown DuckDB database open error"));
        EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
        EXPECT_EQ(database->get_ConnectionCount(), 0u);
        EXPECT_EQ(std::filesystem::exists(Path()), is_old_there);
        database->Create();
        EXPECT_TRUE(database->get_IsOpen());
        database->Drop();
    }
}

TEST_F(DatabaseFailure, CreateWithAnImpossibleFormatReportsTheAttachError) {
    const auto database = host.Database(Path());
    database->put_BlockSize(12345);
    const std::string thrown = Thrown([&] { database->Create(); });
    EXPECT_EQ(thrown.find("xDuckDBError 72501 [" + Path() + "] ["), 0u) << thrown;
    EXPECT_NE(thrown.find("block size"), std::string::npos) << thrown;
    EXPECT_EQ(database->get_ConnectionCount(), 0u);
}

TEST_F(DatabaseFailure, CreateWithWhatIsImpossibleLeavesTheOldFile) {
    using Change = std::function<void(nbx::mrsql::I_DuckDBDatabase&)>;
    const auto with_options = [](auto change) -> Change {
        return [change](nbx::mrsql::I_DuckDBDatabase& database) {
            nbx::mrsql::DuckDBDatabaseOptions options;
            change(options);
            database.put_Options(options);
        };
    };
    const std::vector<Change> changes{
        [](auto& database) { database.put_StorageVersion(S("v9.9")); },
        [](auto& database) { database.put_BlockSize(12345); },
        with_options([](auto& options) { options.threads = 100000; }),
    };
    for (const Change& change : changes) {
        {
            const auto old = host.Created(Path());
            Execute(*old, "CREATE OR REPLACE TABLE t AS SELECT 42 AS i");
            old->Close();
        }
        const auto database = host.Database(Path());
        change(*database);
        EXPECT_EQ(Thrown([&] { database->Create(); }).find("xDuckDBError 72501 [" + Path() + "] ["), 0u);
        EXPECT_FALSE(database->get_IsOpen());
        EXPECT_EQ(QueryText(*host.Opened(Path()), "SELECT i FROM t"), "42");
        for (const auto& entry : std::filesystem::directory_iterator(folder.get_Path())) {
            EXPECT_EQ(entry.path(), Path());
        }
    }
}

TEST_F(DatabaseFailure, OpenOfAFileThatIsNotADatabaseReportsDuckDBsText) {
    std::filesystem::create_directory(Path("folder"));
    const auto database = host.Database(Path("folder"));
    EXPECT_EQ(Thrown([&] { database->Open(); }).find("xException 99000 [IO Error: "), 0u);
    EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
}

TEST_F(DatabaseFailure, AFailedOpenOfAnOpenObjectLeavesItClosed) {
    const auto database = host.Opened(Path());
    FailCall("duckdb_connect", 1);
    ExpectFailure(
        "xException 99000 [Failed to create DuckDB connection]", [&] { database->Open(); }, database);
}

}  // namespace
