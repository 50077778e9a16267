#include <algorithm>
#include <filesystem>
#include <fstream>

#include "database_test_base.h"
#include "support/expected_by_version.h"
#include "support/thread_count.h"

namespace {

using DatabaseConfiguration = DatabaseTest;
using duckdb_faults::get_Log;
using nbx::mrsql::DuckDBDatabaseOptions;
using Lines = std::vector<std::string>;

/** The keys of one configuration after those that every configuration of this DuckDB begins with. */
Lines WrittenKeys() {
    const Lines& settings = get_ExpectedByVersion().engine_settings;
    Lines lines = get_Log("duckdb_set_config ");
    for (std::string& line : lines) {
        line.erase(0, std::string("duckdb_set_config ").size());
    }
    const auto own = lines.begin() + static_cast<std::ptrdiff_t>(std::min(settings.size(), lines.size()));
    EXPECT_EQ(Lines(lines.begin(), own), settings);
    return {own, lines.end()};
}

DuckDBDatabaseOptions Everything(const TempFolder& folder) {
    DuckDBDatabaseOptions options;
    options.threads = 3;
    options.max_memory_mb = 2048;
    options.temp_directory = S(folder / "tmp ä");
    options.enable_external_access = false;
    options.home_directory = S(folder / "home");
    options.secret_directory = S(folder / "secret");
    options.extension_directory = S(folder / "extensions");
    return options;
}

TEST_F(DatabaseConfiguration, WithoutOptionsOnlyTheAccessModeIsWritten) {
    MakeFile();
    EXPECT_EQ(WrittenKeys(), Lines{"access_mode=READ_WRITE"});
    duckdb_faults::Reset();
    host.Opened(Path());
    EXPECT_EQ(WrittenKeys(), Lines{"access_mode=READ_WRITE"});
}

TEST_F(DatabaseConfiguration, DefaultOptionsWriteOnlyTheExternalAccess) {
    MakeFile();
    duckdb_faults::Reset();
    const auto database = host.Database(Path());
    database->put_Options({});
    database->Open();
    EXPECT_EQ(WrittenKeys(), (Lines{"enable_external_access=true", "access_mode=READ_WRITE"}));
}

TEST_F(DatabaseConfiguration, OpenWritesAllOptionsInOrderBeforeTheAccessMode) {
    MakeFile();
    duckdb_faults::Reset();
    const auto database = host.Database(Path());
    database->put_Options(Everything(folder));
    database->Open();
    EXPECT_EQ(WrittenKeys(),
              (Lines{"threads=3", "max_memory=2048MB", "temp_directory=" + (folder / "tmp ä"),
                     "enable_external_access=false", "home_directory=" + (folder / "home"),
                     "secret_directory=" + (folder / "secret"),
                     "extension_directory=" + (folder / "extensions"), "access_mode=READ_WRITE"}));
    EXPECT_EQ(QueryText(*database, "SELECT current_setting('threads')"), "3");
    EXPECT_EQ(QueryText(*database, "SELECT current_setting('enable_external_access')"), "false");
}

TEST_F(DatabaseConfiguration, AnEngineHasNoThreadsBesidesThoseOfTheOption) {
    MakeFile();
    const std::size_t before = CountThreads();
    const auto database = host.Database(Path());
    DuckDBDatabaseOptions options;
    options.threads = 1;  // that of the caller
    database->put_Options(options);
    database->Open();
    EXPECT_LE(CountThreadsAfterJoin(before), before);
    EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM range(100000)"), "100000");
    EXPECT_LE(CountThreadsAfterJoin(before), before);
}

TEST_F(DatabaseConfiguration, CreateWritesTheAccessModeFirst) {
    const auto database = host.Database(Path());
    auto options = Everything(folder);
    options.read_write = false;
    database->put_Options(options);
    database->put_Credentials(S("token"), S("agent"));
    database->Create();
    const Lines keys = WrittenKeys();
    ASSERT_EQ(keys.size(), 8u);
    EXPECT_EQ(keys[0], "access_mode=READ_WRITE");
    EXPECT_EQ(keys[1], "threads=3");
    EXPECT_FALSE(database->get_IsReadOnly());
}

TEST_F(DatabaseConfiguration, CloseDiscardsTheOptions) {
    MakeFile();
    const auto database = host.Database(Path());
    database->put_Options(Everything(folder));
    database->Open();
    database->Close();
    duckdb_faults::Reset();
    database->Open();
    EXPECT_EQ(WrittenKeys(), Lines{"access_mode=READ_WRITE"});
}

TEST_F(DatabaseConfiguration, AUserAgentWithoutATokenIsNotWritten) {
    MakeFile();
    duckdb_faults::Reset();
    const auto database = host.Database(Path());
    database->put_Credentials(S(""), S("agent"));
    database->Open();
    EXPECT_EQ(WrittenKeys(), Lines{"access_mode=READ_WRITE"});
}

TEST_F(DatabaseConfiguration, ATokenIsRefusedByThisDuckDBWithItsText) {
    const auto database = host.Database(Path());
    database->put_Credentials(S("secret"), S("agent"));
    const std::string thrown = Thrown([&] { database->Open(); });
    EXPECT_EQ(thrown.find("xException 99000 ["), 0u) << thrown;
    EXPECT_NE(thrown.find("motherduck_token"), std::string::npos) << thrown;
    EXPECT_EQ(thrown.find("secret"), std::string::npos) << thrown;
    EXPECT_EQ(WrittenKeys(), (Lines{"motherduck_token=secret", "custom_user_agent=agent",
                                    "access_mode=READ_WRITE", "access_mode=READ_ONLY"}));
    EXPECT_FALSE(database->get_IsOpen());
    EXPECT_EQ(database->get_ConnectionCount(), 0u);
}

TEST_F(DatabaseConfiguration, ATokenAloneIsWrittenWithoutAUserAgent) {
    const auto database = host.Database(Path());
    database->put_Credentials(S("secret"), S(""));
    EXPECT_NE(Thrown([&] { database->Open(); }), "none");
    EXPECT_EQ(WrittenKeys().size(), 3u);
}

TEST_F(DatabaseConfiguration, AReadOnlyRequestIsTriedOnce) {
    MakeFile();
    duckdb_faults::Reset();
    DuckDBDatabaseOptions options;
    options.read_write = false;
    const auto database = host.Database(Path());
    database->put_Options(options);
    database->Open();
    EXPECT_EQ(WrittenKeys(), (Lines{"enable_external_access=true", "access_mode=READ_ONLY"}));
}

TEST_F(DatabaseConfiguration, MoreThreadsThanAnyMachineHasAreRefused) {
    const auto database = host.Database(Path());
    const auto open_or_create = {&nbx::mrsql::I_DuckDBDatabase::Open, &nbx::mrsql::I_DuckDBDatabase::Create};
    for (const auto open : open_or_create) {
        for (const uint32_t threads : {1025U, 4'000'000'000U, static_cast<uint32_t>(-1)}) {
            DuckDBDatabaseOptions options;
            options.threads = threads;
            database->put_Options(options);
            if (open == &nbx::mrsql::I_DuckDBDatabase::Open && !std::filesystem::exists(Path())) {
                MakeFile();
            }
            const std::string thrown = Thrown([&] { ((*database).*open)(); });
            EXPECT_NE(thrown.find("threads must not be above 1024; it is " + std::to_string(threads)),
                      std::string::npos)
                << thrown;
            EXPECT_FALSE(database->get_IsOpen());
        }
    }
}

TEST_F(DatabaseConfiguration, UpTo1024ThreadsArePassedOn) {
    // DuckDB refuses the file before it starts the threads.
    std::ofstream(Path()) << "no database";
    const auto database = host.Database(Path());
    DuckDBDatabaseOptions options;
    options.threads = 1024;
    database->put_Options(options);
    const std::string thrown = Thrown([&] { database->Open(); });
    EXPECT_EQ(WrittenKeys().front(), "threads=1024");
    EXPECT_EQ(thrown.find("threads"), std::string::npos) << thrown;
}

}  // namespace
