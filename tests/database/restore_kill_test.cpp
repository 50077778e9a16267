#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <thread>

#include "database_test_base.h"
#include "support/environment.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

class RestoreKill : public DatabaseTest {
  protected:
    static constexpr int kNewRows = 20000;

    void SetUp() override {
        DatabaseTest::SetUp();
        {
            const auto source = host.Created(Path("source.db"));
            Execute(*source, "CREATE TABLE t AS SELECT range AS i, md5(range::VARCHAR) AS x FROM range(" +
                                 std::to_string(kNewRows) + ")");
            fs::create_directory(Path("backups"));
            source->Backup(Location(Path("backups")));
            backup = fs::directory_iterator(Path("backups"))->path().string();
        }
        // A process that is killed leaves committed rows in its log.
        SecondProcess writer({COMMIT_WRITER, Path("old.db")});
        for (int i = 0; i < 20; ++i) {
            committed = std::stoi("0" + writer.ReadLine());
        }
        writer.Kill();
        ASSERT_EQ(committed, 20);
        ASSERT_TRUE(fs::exists(Path("old.db.wal")));
        fs::create_directory(Path("target"));
        target = Path("target/test.db");
    }
    void PrepareTarget() const {
        fs::remove_all(Path("target"));
        fs::create_directory(Path("target"));
        fs::copy_file(Path("old.db"), target);
        fs::copy_file(Path("old.db.wal"), target + ".wal");
    }
    /** "old" or "new"; any other text means that the database is damaged. */
    std::string Recognise() const {
        const auto database = host.Opened(target);
        const std::string tables =
            QueryText(*database, "SELECT string_agg(table_name, ' ' ORDER BY ALL) FROM duckdb_tables()");
        if (tables == "r") {
            const int rows = std::stoi(QueryText(*database, "SELECT count(*) FROM r"));
            const int last = std::stoi(QueryText(*database, "SELECT max(i) FROM r"));
            return rows >= committed && rows == last ? "old" : "an old one with rows lost";
        }
        const std::string sum = "SELECT count(*) || ' ' || sum(hash(t)) FROM t";
        return tables == "t" && QueryText(*database, sum) == QueryText(*host.Opened(Path("source.db")), sum)
                   ? "new"
                   : "damaged: " + tables;
    }

    std::string backup;
    std::string target;
    /** Rows that the old database has at least: the writer may commit another one before it is killed. */
    int committed = 0;
};

TEST_F(RestoreKill, LeavesTheOldOrTheNewDatabaseWhole) {
    constexpr std::array<const char*, 5> kStages{"unfolded", "opened", "folded", "unplaced", "placed"};
    const int runs = NumberFromEnvironment("MDUCKDB_TEST_RESTORE_KILL_RUNS", 12);
    std::mt19937 random(static_cast<unsigned>(NumberFromEnvironment("MDUCKDB_TEST_SEED", 20240918)));
    std::map<std::string, int> outcomes;
    PrepareTarget();
    SecondProcess whole_run({RESTORE_RUNNER, target, backup});
    ASSERT_EQ(whole_run.ReadLine(), "begin");
    const auto begin = Clock::now();
    ASSERT_EQ(whole_run.ReadLine(), "end");
    const auto duration = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count();
    whole_run.Finish();
    ASSERT_EQ(Recognise(), "new");
    for (int run = 0; run < runs; ++run) {
        PrepareTarget();
        const bool is_aimed = run % 2 == 0;
        const char* stage = is_aimed ? kStages[static_cast<unsigned>(run / 2) % kStages.size()] : "";
        {
            SecondProcess process({RESTORE_RUNNER, target, backup, stage});
            ASSERT_EQ(process.ReadLine(), "begin");
            if (is_aimed) {
                ASSERT_EQ(process.ReadLine(), "") << stage;
            } else {
                const auto delay = random() % static_cast<unsigned long>(duration * 5 / 4);
                std::this_thread::sleep_for(std::chrono::microseconds(delay));
            }
            process.Kill();
        }
        const std::string found = Recognise();
        ++outcomes[(is_aimed ? stage : "at random") + (": " + found)];
        ASSERT_TRUE(found == "old" || found == "new") << found << ", run " << run << " " << stage;
        if (is_aimed) {
            EXPECT_EQ(found, std::string(stage) == "placed" ? "new" : "old") << stage;
        }
    }
    for (const auto& [outcome, count] : outcomes) {
        std::cout << outcome << " " << count << "\n";
    }
}

TEST_F(RestoreKill, LeavesAFolderThatTheNextRestoreDeletes) {
    const auto list = [this] {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(Path("target"))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    };
    const auto count_parts = [&list] {
        const auto names = list();
        return std::count_if(names.begin(), names.end(),
                             [](const std::string& name) { return name.starts_with("test.db.part-"); });
    };
    PrepareTarget();
    {
        SecondProcess process({RESTORE_RUNNER, target, backup, "unplaced"});
        ASSERT_EQ(process.ReadLine(), "begin");
        ASSERT_EQ(process.ReadLine(), "");
    }
    ASSERT_EQ(count_parts(), 1);
    // This one belongs to a restore that still runs.
    fs::create_directory(target + ".part-living");
    const int mark = open((target + ".part-living/.in-use").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(mark, LOCK_EX), 0);
    host->RestoreDatabase(Location(target), Location(backup));
    EXPECT_EQ(list(), (std::vector<std::string>{"test.db", "test.db.part-living"}));
    close(mark);
    host->RestoreDatabase(Location(target), Location(backup));
    EXPECT_EQ(list(), (std::vector<std::string>{"test.db"}));
    EXPECT_EQ(Recognise(), "new");
}

/** A restore that another process meets at a stage between writing the old log into its file and the lock. */
class RestoreBesideAWriter : public RestoreKill {
  protected:
    void SetUp() override {
        RestoreKill::SetUp();
        PrepareTarget();
        // Another name of the old file, which the restore leaves to it.
        fs::create_hard_link(target, old_file);
    }
    /** Starts the restore, which stops at the stage. */
    void Start(const char* stage) {
        restore.emplace(std::vector<std::string>{RESTORE_RUNNER, target, backup, stage, "wait"});
        ASSERT_EQ(restore->ReadLine(), "begin");
        ASSERT_EQ(restore->ReadLine(), stage);
    }
    std::string Continue() {
        restore->Continue();
        return restore->ReadLine();
    }
    /** Another process commits rows; returns the last one. */
    static int CommitRows(SecondProcess& writer) {
        writer.ReadLine();
        return std::stoi("0" + writer.ReadLine());
    }
    int CountOldRows() const {
        return std::stoi(QueryText(*host.Opened(old_file), "SELECT count(*) FROM r"));
    }

    const std::string old_file = Path("old_file.db");
    std::optional<SecondProcess> restore;
};

TEST_F(RestoreBesideAWriter, LeavesTheLogOfAFileThatWasRenamedDuringTheImport) {
    const std::string renamed = Path("target/renamed.db");
    Start("imported");
    fs::rename(target, renamed);
    EXPECT_EQ(Continue(), Refusal(target, "Can not be dropped. Another file has taken its place."));
    EXPECT_FALSE(fs::exists(target));
    ASSERT_TRUE(fs::exists(target + ".wal"));
    fs::rename(target + ".wal", renamed + ".wal");
    // The file that both were copied from tells how many rows there are.
    const char* const count = "SELECT count(*) FROM r";
    EXPECT_EQ(QueryText(*host.Opened(renamed), count), QueryText(*host.Opened(Path("old.db")), count));
}

TEST_F(RestoreBesideAWriter, LeavesADatabaseThatAProcessCreatesDuringTheImport) {
    fs::remove(target);
    fs::remove(target + ".wal");
    Start("imported");
    int last = 0;
    {
        SecondProcess writer({COMMIT_WRITER, target});
        last = CommitRows(writer);
        EXPECT_EQ(Continue(), Refusal(target, "Can not be dropped. Another file has taken its place."));
        writer.Kill();
    }
    EXPECT_FALSE(fs::exists(target + ".unreadable.wal"));
    EXPECT_GE(std::stoi(QueryText(*host.Opened(target), "SELECT count(*) FROM r")), last);
}

TEST_F(RestoreBesideAWriter, FoldsALogThatAProcessLeavesBeforeTheLock) {
    for (const std::string stage : {"folded", "unlocked"}) {
        PrepareTarget();
        fs::remove(old_file);
        fs::create_hard_link(target, old_file);
        Start(stage.c_str());
        int last = 0;
        {
            SecondProcess writer({COMMIT_WRITER, target});
            last = CommitRows(writer);
        }
        ASSERT_GT(last, committed) << stage;
        ASSERT_TRUE(fs::exists(target + ".wal")) << stage;
        std::string line = Continue();
        EXPECT_EQ(line, stage) << "the log is folded once more";
        while (line == stage) {
            line = Continue();
        }
        EXPECT_EQ(line, "end");
        EXPECT_EQ(Recognise(), "new") << stage;
        EXPECT_GE(CountOldRows(), last) << stage;
        EXPECT_FALSE(fs::exists(target + ".unreadable")) << stage;
    }
}

TEST_F(RestoreBesideAWriter, IsRefusedWhenAProcessOpensTheFileBeforeTheLock) {
    Start("unlocked");
    SecondProcess writer({COMMIT_WRITER, target});
    const int last = CommitRows(writer);
    ASSERT_GT(last, committed);
    EXPECT_EQ(Continue(), Refusal(target, std::string("Can not be dropped. ") + COMMIT_WRITER + " (process " +
                                              std::to_string(writer.get_Number()) + ") has the file open."));
    EXPECT_GT(CommitRows(writer), last);
    writer.Kill();
    EXPECT_EQ(Recognise(), "old");
}

TEST_F(RestoreBesideAWriter, IsRefusedWhenProcessesKeepWritingBeforeTheLock) {
    Start("unlocked");
    std::string line;
    int rounds = 0;
    do {
        // Closes the file, so that no log is left: the file alone has changed.
        ASSERT_EQ(RunElsewhere(target, "INSERT INTO r SELECT max(i) + 1 FROM r"), "ok");
        ++rounds;
        line = Continue();
    } while (line == "unlocked");
    EXPECT_EQ(line, Refusal(target, "Can not be dropped. Other processes keep writing to the file."));
    EXPECT_GE(CountOldRows(), committed + rounds);
    EXPECT_EQ(Recognise(), "old");
}

}  // namespace
