#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "backup/files.h"
#include "backup/manifest.h"
#include "plain_engine.h"
#include "support/environment.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/** What `cp` takes until the disk holds the copy. */
double SecondsOfCp(const std::string& from, const std::string& to) {
    const auto start = Clock::now();
    EXPECT_EQ(std::system(("cp " + from + " " + to).c_str()), 0);
    SyncToDisk(to);
    return SecondsSince(start);
}

double NumberIn(const std::string& manifest, const std::string& member) {
    const std::size_t at = manifest.find("\"" + member + "\": ");
    return at == std::string::npos ? -1 : std::atof(manifest.c_str() + at + member.size() + 4);
}

// 35,000,000 rows make a file of 2 GB. The copy itself must not take longer than 1.3 times as long as cp;
// what the check takes is printed. Without the variable it is a small file, of which only the figures are
// looked at.
TEST(SnapshotSpeed, CopiesAboutAsFastAsCp) {
    const int rows = NumberFromEnvironment("MDUCKDB_TEST_SNAPSHOT_SPEED_ROWS", 0);
    const TempFolder folder;
    const std::string file = folder / "source.db";
    const PlainEngine source(file);
    ASSERT_EQ(
        source.Run(
            "CREATE TABLE t AS SELECT hash(i) AS a, hash(i + 1) AS b, md5(i::VARCHAR) AS c, hash(i * 3) "
            "AS d, md5((i * 7)::VARCHAR) AS e FROM range(" +
            std::to_string(std::max(rows, 1000)) + ") r(i); CHECKPOINT"),
        "");
    double copy = 1e9;
    double cp = 1e9;
    double check = 1e9;
    for (int round = 0; round < (rows > 0 ? 4 : 1); ++round) {
        cp = std::min(cp, SecondsOfCp(file, folder / "cp.db"));
        std::filesystem::remove(folder / "cp.db");
        ASSERT_EQ(SnapshotError(source, folder / "snap.db"), "none");
        const std::string manifest = ReadWhole(ManifestOf(folder / "snap.db"));
        copy = std::min(copy, NumberIn(manifest, "copy_seconds"));
        check = std::min(check, NumberIn(manifest, "check_seconds"));
        std::filesystem::remove(folder / "snap.db");
    }
    std::cout << FileSize(file) << " bytes: cp and fsync " << cp << " s, copy of the snapshot " << copy
              << " s, its check " << check << " s\n";
    EXPECT_GE(copy, 0);
    EXPECT_GE(check, 0);
    if (rows > 0) {
        EXPECT_LE(copy, cp * 1.3);
    }
}

}  // namespace
}  // namespace mduckdb
