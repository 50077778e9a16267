// Both built modules in one process: 8 threads of random operations on four files under two names each. For
// ThreadSanitizer above all; without it, for crashes, deadlocks and lost rows.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include "modules/stress_worker.h"
#include "nbx/hooks.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "nbx/value.h"
#include "support/environment.h"
#include "support/temp_folder.h"

namespace {

using nbx::FromUtf8;
using Clock = std::chrono::steady_clock;

constexpr int kWorkers = 8;
constexpr std::chrono::seconds kLongestStep{120};

uint64_t Seed() {
    const int given = NumberFromEnvironment("MDUCKDB_TEST_SEED", 0);
    return given != 0 ? static_cast<uint64_t>(given) : std::random_device()() % 1'000'000 + 1;
}

/** Ends the process when no worker finishes an operation for a long time. */
void WatchForDeadlock(const StressPlan& plan, Clock::time_point end) {
    uint64_t last = 0;
    Clock::time_point changed = Clock::now();
    while (Clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const uint64_t steps = plan.steps;
        if (std::exchange(last, steps) != steps) {
            changed = Clock::now();
        } else if (Clock::now() - changed > kLongestStep) {
            std::fprintf(stderr, "No operation ended for %lld s: deadlock\n",
                         static_cast<long long>(kLongestStep.count()));
            std::abort();
        }
    }
}

class ModulesStress : public testing::Test {
  protected:
    ModulesStress() {
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
        plan_.folder = folder_.get_Path().string();
        for (const char* const module : {MODULE, CASTS_MODULE}) {
            plan_.modules.push_back(std::make_unique<LoadedModule>(module));
        }
        for (const auto& [name, use] : {std::pair("held.db", FileUse::kHeldOpen),
                                        {"kept.db", FileUse::kKept},
                                        {"replaced.db", FileUse::kReplaced},
                                        {"restored.db", FileUse::kRestored}}) {
            plan_.files.push_back(std::make_unique<StressedFile>(plan_.folder, name, use));
            MakeFile(*plan_.files.back());
        }
        held_ = Open(*plan_.modules[0], plan_.files[0]->get_Name(0));
    }

    static DatabasePtr Open(LoadedModule& module, const std::string& path) {
        DatabasePtr database = module->CreateDatabase(Location(path));
        database->Open();
        return database;
    }

    /** The file with its table, its shared objects, and, from the last one, what is restored. */
    void MakeFile(StressedFile& file) {
        const DatabasePtr database = (*plan_.modules[0])->CreateDatabase(Location(file.get_Name(0)));
        database->Create();
        plan_.parquet = folder_ / "t.parquet";
        database->SqlExecute(
            FromUtf8("CREATE TABLE t (worker INTEGER, number BIGINT); COPY (FROM range(5000)) TO '" +
                     plan_.parquet + "'"),
            nullptr);
        if (file.get_Use() == FileUse::kRestored) {
            return;
        }
        for (const auto& module : plan_.modules) {
            for (const std::size_t name : {0U, 1U}) {
                plan_.databases.push_back(std::make_unique<SharedDatabase>(file));
                plan_.databases.back()->Put((*module)->CreateDatabase(Location(file.get_Name(name))));
            }
        }
        if (file.get_Use() == FileUse::kReplaced) {
            MakeBackups(*database);
        }
    }

    void MakeBackups(nbx::mrsql::I_DuckDBDatabase& database) {
        const std::string exports = folder_ / "exports";
        std::filesystem::create_directory(exports);
        database.Backup(Location(exports));
        plan_.export_folder = std::filesystem::directory_iterator(exports)->path().string();
        plan_.snapshot = folder_ / "saved.db";
        static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
            database.QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId))
            ->Snapshot(Location(plan_.snapshot));
    }

    void Work(uint64_t seed, Clock::time_point end) {
        std::vector<std::thread> threads;
        for (int number = 0; number < kWorkers; ++number) {
            threads.emplace_back([this, seed, number] {
                StressWorker(plan_, number, seed * kWorkers + static_cast<uint64_t>(number)).Run();
            });
        }
        WatchForDeadlock(plan_, end);
        plan_.is_over = true;
        std::atomic<bool> have_ended{false};
        std::thread watch([this, &have_ended] {
            while (!have_ended) {
                WatchForDeadlock(plan_, Clock::now() + std::chrono::milliseconds(200));
            }
        });
        for (std::thread& thread : threads) {
            thread.join();
        }
        have_ended = true;
        watch.join();
    }

    void ExpectRows(StressedFile& file) {
        const DatabasePtr database = Open(*plan_.modules[1], file.get_Name(1));
        const auto cursor =
            database->SqlSelect(FromUtf8("SELECT worker, number FROM t"), nbx::mrsql::kClientCursor, nullptr);
        std::vector<Row> rows;
        while (cursor->NextRecord()) {
            rows.emplace_back(cursor->get_Value(0)->get_LLong(), cursor->get_Value(1)->get_LLong());
        }
        file.ExpectCommittedRows(rows);
        std::printf("%s: %zu rows\n", file.get_Name(0).c_str(), rows.size());
    }

    TempFolder folder_;
    StressPlan plan_{};
    DatabasePtr held_;
};

TEST_F(ModulesStress, EightThreadsLoseNoRowAndNeverBlockOneAnother) {
    const uint64_t seed = Seed();
    const std::chrono::seconds length(NumberFromEnvironment("MDUCKDB_TEST_STRESS_SECONDS", 10));
    std::printf("MDUCKDB_TEST_SEED=%llu, %lld s\n", static_cast<unsigned long long>(seed),
                static_cast<long long>(length.count()));
    Work(seed, Clock::now() + length);
    for (std::size_t i = 0; i < StressWorker::GetOperations().size(); ++i) {
        const uint64_t count = plan_.successes[i];
        std::printf("%8llu %s\n", static_cast<unsigned long long>(count),
                    StressWorker::GetOperations()[i].name);
    }
    std::printf("%8llu files replaced by a restore\n", static_cast<unsigned long long>(plan_.replacements));
    EXPECT_GT(plan_.replacements, 0U);
    for (const auto& database : plan_.databases) {
        database->Get()->Close();
    }
    ExpectRows(*plan_.files[0]);
    ExpectRows(*plan_.files[1]);
    ExpectRows(*plan_.files[3]);
    if (std::filesystem::exists(plan_.files[2]->get_Name(0))) {
        const DatabasePtr last = Open(*plan_.modules[0], plan_.files[2]->get_Name(0));
        last->SqlExecute(FromUtf8("CREATE TABLE IF NOT EXISTS t (worker INTEGER, number BIGINT)"), nullptr);
        last->Close();
        ExpectRows(*plan_.files[2]);
    }
}

}  // namespace
