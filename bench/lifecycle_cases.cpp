#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "groups.h"
#include "module_under_test.h"
#include "nbx/exception.h"
#include "nbx/hooks.h"
#include "workloads.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBDatabase;

constexpr uint64_t kOpens = 2'000;

Group MakeOpenGroup(const Options& options) {
    const auto bare = std::make_shared<std::unique_ptr<BareDuckDB>>();
    const auto holder = std::make_shared<nbx::smart_ptr<I_DuckDBDatabase>>();
    const auto path = std::make_shared<std::string>();
    return {"open-close",
            "open",
            [=, &options] {
                std::filesystem::create_directories(options.folder);
                const std::string bare_path = options.folder + "/open-bare.duckdb";
                *path = options.folder + "/open-module.duckdb";
                std::filesystem::remove(bare_path);
                *bare = std::make_unique<BareDuckDB>(bare_path, false);
                (*bare)->Run("RESET threads");  // the module's database has all of them too
                *holder = MakeDatabase(*path);
                (*holder)->Create();
            },
            {{"bare",
              [=] {
                  for (uint64_t i = 0; i < kOpens; ++i) {
                      duckdb_connection connection = nullptr;
                      duckdb_connect((*bare)->get_Engine(), &connection);
                      duckdb_result result;
                      duckdb_query(connection, "SET errors_as_json = true;", &result);
                      duckdb_destroy_result(&result);
                      duckdb_disconnect(&connection);
                  }
                  return kOpens;
              },
              nullptr},
             {"module",
              [=] {
                  const nbx::smart_ptr<I_DuckDBDatabase> database = MakeDatabase(*path);
                  for (uint64_t i = 0; i < kOpens; ++i) {
                      database->Open();
                      database->Close();
                  }
                  return kOpens;
              },
              nullptr}}};
}

std::string TableSql(const Options& options) {
    return "CREATE TABLE numbers AS SELECT i AS id, hash(i) AS h, 'text ' || i AS t FROM range(" +
           std::to_string(static_cast<long long>(5'000'000 * options.scale)) + ") t(i)";
}

std::string ExportSql(const std::string& folder) {
    return "EXPORT DATABASE '" + folder +
           "' ( FORMAT PARQUET, COMPRESSION ZSTD, ROW_GROUP_SIZE 100_000, PARQUET_VERSION V2 )";
}

nbx::smart_ptr<nbx::I_Location> At(const std::string& path) {
    return nbx::CreateLocation(nbx::String(path.c_str()));
}

Group MakeBackupGroup(const Options& options) {
    const std::string folder = options.folder + "/backup";
    const auto source = std::make_shared<std::string>(options.folder + "/backup-source.duckdb");
    const auto rows = static_cast<uint64_t>(5'000'000 * options.scale);
    const auto clean = [=] {
        for (const char* name : {"/bare", "/module"}) {
            std::filesystem::remove_all(folder + name);
            std::filesystem::create_directories(folder + name);
        }
    };
    return {"backup",
            "row",
            [=, &options] {
                clean();
                std::filesystem::remove(*source);
                const BareDuckDB duckdb(*source, false);
                duckdb.Run(TableSql(options));
            },
            {{"bare",
              [=] {
                  const BareDuckDB duckdb(*source);
                  duckdb.Run("RESET threads");
                  duckdb.Run(ExportSql(folder + "/bare/export"));
                  return rows;
              },
              clean},
             {"module",
              [=] {
                  const nbx::smart_ptr<I_DuckDBDatabase> database = MakeDatabase(*source);
                  database->Open();
                  database->Backup(At(folder + "/module"));
                  return rows;
              },
              clean}}};
}

Group MakeRestoreGroup(const Options& options) {
    const std::string folder = options.folder + "/restore";
    const auto rows = static_cast<uint64_t>(5'000'000 * options.scale);
    const auto exported = std::make_shared<std::string>();
    const std::string target = options.folder + "/restored.duckdb";
    const auto clean = [=] {
        std::filesystem::remove(target);
        std::filesystem::remove(target + ".wal");
    };
    return {"restore",
            "row",
            [=, &options] {
                std::filesystem::remove_all(folder);
                std::filesystem::create_directories(folder);
                const BareDuckDB duckdb("", false);
                duckdb.Run("RESET threads");
                duckdb.Run(TableSql(options));
                *exported = folder + "/export";
                duckdb.Run(ExportSql(*exported));
                clean();
            },
            {{"bare",
              [=] {
                  const BareDuckDB duckdb(target, false);
                  duckdb.Run("RESET threads");
                  duckdb.Run("IMPORT DATABASE '" + *exported + "'");
                  return rows;
              },
              clean},
             {"module",
              [=] {
                  GetExtension()->RestoreDatabase(At(target), At(*exported));
                  return rows;
              },
              clean}}};
}

constexpr const char* kLongQuery = "SELECT count(*) FROM range(1000000000000) t(i) WHERE hash(i) = 1";

/** Seconds from `Interrupt` to the exception. */
double MeasureInterrupt(I_DuckDBDatabase& database) {
    using Clock = std::chrono::steady_clock;
    Clock::time_point interrupted;
    std::thread interrupter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        interrupted = Clock::now();
        database.Interrupt();
    });
    Clock::time_point ended;
    try {
        database.SqlExecute(nbx::String(kLongQuery), nullptr);
        Die("the long query ended by itself");
    } catch (const nbx::xInterruptError&) {
        ended = Clock::now();
    }
    interrupter.join();
    return std::chrono::duration<double>(ended - interrupted).count();
}

/** Prints the delays itself: what counts is not their sum but the largest of them. */
Group MakeInterruptGroup() {
    const auto database = std::make_shared<nbx::smart_ptr<I_DuckDBDatabase>>();
    return {"interrupt",
            "interrupt",
            [=] {
                nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
                *database = MakeDatabase(":memory:");
                (*database)->Open();
            },
            {{"200 delays",
              [=]() -> uint64_t {
                  std::vector<double> delays(200);
                  std::generate(delays.begin(), delays.end(), [&] { return MeasureInterrupt(**database); });
                  std::sort(delays.begin(), delays.end());
                  std::printf(
                      R"({"group":"interrupt","case":"delay","median_ms":%.3f,"p99_ms":%.3f,"max_ms":%.3f})"
                      "\n",
                      delays[100] * 1e3, delays[198] * 1e3, delays[199] * 1e3);
                  return delays.size();
              },
              nullptr}}};
}

}  // namespace

std::vector<Group> GetLifecycleGroups(const Options& options) {
    return {MakeOpenGroup(options), MakeBackupGroup(options), MakeRestoreGroup(options),
            MakeInterruptGroup()};
}

}  // namespace bench
