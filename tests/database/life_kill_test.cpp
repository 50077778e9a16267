#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <thread>

#include "database_test_base.h"
#include "support/environment.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

/** What life_runner prints, in this order; then again from the second on. */
constexpr std::array<const char*, 7> kSteps{"begin", "created", "100", "200", "300", "backed up", "dropped"};

class LifeKill : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        fs::create_directory(Path("backups"));
    }

    /** How long each step takes after the one before. */
    void MeasureSteps() {
        SecondProcess runner({LIFE_RUNNER, Path(), Path("backups")});
        auto begin = Clock::now();
        for (std::size_t step = 0; step < kSteps.size(); ++step) {
            ASSERT_EQ(runner.ReadLine(), kSteps[step]);
            const auto end = Clock::now();
            durations_[step] = std::chrono::duration_cast<microseconds>(end - begin);
            begin = end;
        }
        runner.Kill();
    }

    /** Kills the process while it is at the step that follows `step`, or a little later; returns the last one
        that it reported. */
    std::string KillAfter(std::size_t step) {
        SecondProcess runner({LIFE_RUNNER, Path(), Path("backups")});
        for (std::size_t i = 0; i <= step; ++i) {
            EXPECT_EQ(runner.ReadLine(), kSteps[i]);
        }
        const auto next = static_cast<unsigned long>(durations_[step % (kSteps.size() - 1) + 1].count());
        std::this_thread::sleep_for(microseconds(random_() % (next * 5 / 4 + 1)));
        runner.Kill();
        std::string last = kSteps[step];
        for (std::string line = runner.ReadLine(); !line.empty(); line = runner.ReadLine()) {
            last = line;
        }
        return last;
    }

    /** "no file", "no table", "cannot be opened", or the number of rows if none is missing in between. */
    std::string Look() const {
        if (!fs::exists(Path())) {
            return "no file";
        }
        const auto database = host.Database(Path());
        if (Thrown([&] { database->Open(); }) != "none") {
            return "cannot be opened";
        }
        if (QueryText(*database, "SELECT count(*) FROM duckdb_tables()") != "1") {
            return "no table";
        }
        return QueryText(*database,
                         "SELECT CASE WHEN count(*) = coalesce(max(i), 0) THEN count(*)::VARCHAR ELSE 'rows "
                         "lost' END FROM r");
    }

    /** Backups that DuckDB has finished, by writing load.sql; each has all rows, and no other is restored. */
    int CountBackups() {
        int count = 0;
        for (const auto& backup : fs::directory_iterator(Path("backups"))) {
            const auto restored = host.Database(Path("restored.db"));
            std::error_code missing;
            const auto size = fs::file_size(backup.path() / "load.sql", missing);
            const std::string thrown = Thrown([&] {
                host->RestoreDatabase(Location(Path("restored.db")), Location(backup.path().string()));
            });
            EXPECT_EQ(thrown == "none", !missing && size > 0) << thrown;
            if (thrown == "none") {
                restored->Open();
                EXPECT_EQ(QueryText(*restored, "SELECT count(*) || ' ' || max(i) FROM r"), "300 300");
                restored->Drop();
                ++count;
            }
        }
        fs::remove_all(Path("backups"));
        fs::create_directory(Path("backups"));
        return count;
    }

    /** Whatever is left of a file: it gives way to a new one, into which nothing of it comes. */
    void ExpectThatItCanBeCreatedAnew() const {
        const auto database = host.Created(Path());
        EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM duckdb_tables()"), "0");
        database->Drop();
        EXPECT_EQ(Look(), "no file");
    }

    std::array<microseconds, kSteps.size()> durations_{};
    std::mt19937 random_{static_cast<unsigned>(NumberFromEnvironment("MDUCKDB_TEST_SEED", 20241122))};
};

/** What may be found when the process was killed after it had reported the step. */
const std::map<std::string, std::vector<std::string>> kAllowed = {
    {"begin", {"no file", "cannot be opened", "no table", "0"}},
    {"created", {"0", "100"}},
    {"100", {"100", "200"}},
    {"200", {"200", "300"}},
    {"300", {"300"}},
    {"backed up", {"300", "no file"}},
    {"dropped", {"no file", "cannot be opened", "no table", "0"}},
};

TEST_F(LifeKill, LeavesWhatWasReportedAndAPlaceForANewFile) {
    ASSERT_NO_FATAL_FAILURE(MeasureSteps());
    CountBackups();
    const int runs = NumberFromEnvironment("MDUCKDB_TEST_KILL_RUNS", 7);
    std::map<std::string, int> outcomes;
    for (int run = 0; run < runs; ++run) {
        const std::string last = KillAfter(static_cast<std::size_t>(run) % kSteps.size());
        const std::string found = Look();
        ++outcomes[last + ": " + found];
        ASSERT_THAT(kAllowed.at(last), testing::Contains(found)) << "run " << run << " after " << last;
        const int backups = CountBackups();
        if (last == "backed up" || last == "dropped") {
            EXPECT_GE(backups, 1) << "run " << run;
        }
        ExpectThatItCanBeCreatedAnew();
        ASSERT_FALSE(HasFailure()) << "run " << run;
    }
    std::cout << runs << " kills\n";
    for (const auto& [outcome, count] : outcomes) {
        std::cout << "after " << outcome << ": " << count << "\n";
    }
}

}  // namespace
