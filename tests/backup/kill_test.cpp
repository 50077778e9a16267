#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <random>
#include <thread>

#include "backup/files.h"
#include "backup/manifest.h"
#include "plain_engine.h"
#include "support/environment.h"
#include "support/second_process.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

namespace fs = std::filesystem;

/** The last rows are there, numbered without a gap. */
void ExpectWhole(const std::string& file) {
    const PlainEngine engine(file, "READ_ONLY");
    EXPECT_EQ(engine.Text("SELECT (count(*) = least(max(i), 20) AND count(*) = max(i) - min(i) + 1 AND "
                          "sum(length(s)) = 100000 * count(*))::VARCHAR FROM r"),
              "true")
        << file;
}

void ExpectWholeSnapshot(const std::string& file) {
    BackupStop stop;
    const auto identity = ReadManifest(ReadWhole(ManifestOf(file)));
    ASSERT_TRUE(identity.has_value()) << file;
    EXPECT_EQ(identity->sha256, FileSum(file, stop)) << file;
    ExpectWhole(file);
}

TEST(SnapshotKill, LeavesOnlyCompleteFilesUnderTheirFinalNames) {
    const TempFolder folder;
    const std::string source = folder / "source.db";
    const std::string target = folder / "target.db";
    fs::create_directory(folder / "snaps");
    const std::string table = "CREATE TABLE r AS SELECT 1::BIGINT AS i, repeat('x', 100000) AS s";
    ASSERT_EQ(PlainEngine(source).Run(table), "");
    ASSERT_EQ(PlainEngine(target).Run(table), "");
    std::mt19937 random(static_cast<unsigned>(NumberFromEnvironment("MDUCKDB_TEST_SEED", 20240917)));
    int snapshots = 0;
    const int runs = NumberFromEnvironment("MDUCKDB_TEST_KILL_RUNS", 8);
    for (int run = 0; run < runs; ++run) {
        {
            SecondProcess runner({SNAPSHOT_RUNNER, source, folder / "snaps", target});
            ASSERT_EQ(runner.ReadLine(), "started");
            for (auto lines = random() % 4; lines > 0; --lines) {
                ASSERT_NE(runner.ReadLine(), "");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 300));
            runner.Kill();
        }
        ExpectWhole(source);
        ExpectWhole(target);
        for (const auto& entry : fs::directory_iterator(folder / "snaps")) {
            if (entry.path().extension() == ".db") {
                ExpectWholeSnapshot(entry.path().string());
                ++snapshots;
            }
        }
        ASSERT_FALSE(HasFailure()) << "run " << run;
    }
    std::cout << runs << " kills, " << snapshots << " snapshots checked\n";
    EXPECT_GT(snapshots, 0);
}

}  // namespace
}  // namespace mduckdb
