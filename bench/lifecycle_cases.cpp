#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "bare_duckdb.h"
#include "groups.h"
#include "module_under_test.h"
#include "nbx/exception.h"
#include "nbx/hooks.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBDatabase;

constexpr uint64_t kOpens = 2'000;

uint64_t OpenBare(const BareDuckDB& shared, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        duckdb_connection connection = nullptr;
        duckdb_connect(shared.get_Engine(), &connection);
        duckdb_query(connection, "SET errors_as_json = true;", nullptr);
        duckdb_disconnect(&connection);
    }
    return count;
}

uint64_t OpenByModule(const std::string& path, uint64_t count) {
    const nbx::smart_ptr<I_DuckDBDatabase> database = MakeDatabase(path);
    for (uint64_t i = 0; i < count; ++i) {
        database->Open();
        database->Close();
    }
    return count;
}

/** On a path whose engine another object keeps open. */
Group MakeOpenGroup(const Options& options) {
    const auto bare = std::make_shared<std::unique_ptr<BareDuckDB>>();
    const auto holder = std::make_shared<nbx::smart_ptr<I_DuckDBDatabase>>();
    const std::string bare_path = options.folder + "/open-bare.duckdb";
    const std::string path = options.folder + "/open-module.duckdb";
    const uint64_t count = Scaled(kOpens, options);
    return {"open-close",
            "open",
            [=, &options] {
                std::filesystem::create_directories(options.folder);
                std::filesystem::remove(bare_path);
                *bare = std::make_unique<BareDuckDB>(bare_path, BareDuckDB::Access::writing, 0);
                *holder = MakeDatabase(path);
                (*holder)->Create();
            },
            {{"bare", [=] { return OpenBare(**bare, count); }, nullptr},
             {"module", [=] { return OpenByModule(path, count); }, nullptr}}};
}

constexpr uint64_t kBackupRows = 5'000'000;

std::string TableSql(uint64_t rows) {
    return "CREATE TABLE numbers AS SELECT i AS id, hash(i) AS h, 'text ' || i AS t FROM range(" +
           std::to_string(rows) + ") t(i)";
}

std::string ExportSql(const std::string& folder) {
    return "EXPORT DATABASE '" + folder +
           "' ( FORMAT PARQUET, COMPRESSION ZSTD, ROW_GROUP_SIZE 100_000, PARQUET_VERSION V2 )";
}

void SyncOne(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0 || fsync(descriptor) != 0) {
        Die("backup, bare: cannot be synchronised");
    }
    close(descriptor);
}

/** DuckDB does not wait for the disk. */
void Sync(const std::string& folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        SyncOne(entry.path());
    }
    SyncOne(folder);
}

nbx::smart_ptr<nbx::I_Location> At(const std::string& path) {
    return nbx::CreateLocation(nbx::String(path.c_str()));
}

/** The sum over all rows, each by the hash of its text. */
int64_t GetHash(const BareDuckDB& duckdb, const std::string& table) {
    return duckdb.GetNumber("SELECT sum(hash(t::VARCHAR) % 1000000007)::BIGINT FROM " + table + " t");
}

void RequireSameHash(const std::string& what, int64_t expected, int64_t actual) {
    if (expected != actual) {
        Die(what + ": the rows differ");
    }
}

void RemakeFolder(const std::string& folder) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
}

/** The disk is the noisiest part, and these two have the tightest limits. */
constexpr unsigned kRunsInRound = 3;

Group MakeBackupGroup(const Options& options) {
    const std::string folder = options.folder + "/backup";
    const std::string source = options.folder + "/backup-source.duckdb";
    const uint64_t rows = Scaled(kBackupRows, options);
    const auto clean = [=] {
        RemakeFolder(folder + "/bare");
        RemakeFolder(folder + "/module");
    };
    const auto run_bare = [=] {
        const BareDuckDB duckdb(source, BareDuckDB::Access::writing, 0);
        duckdb.Run(ExportSql(folder + "/bare/export"));
        Sync(folder + "/bare/export");
        return rows;
    };
    const auto run_module = [=] {
        const nbx::smart_ptr<I_DuckDBDatabase> database = MakeDatabase(source);
        database->Open();
        database->Backup(At(folder + "/module"));
        return rows;
    };
    Group group{"backup", "row", nullptr, {}};
    group.prepare = [=] {
        clean();
        std::filesystem::remove(source);
        BareDuckDB(source, BareDuckDB::Access::writing).Run(TableSql(rows));
    };
    group.cases = {{"bare", run_bare, clean, kRunsInRound}, {"module", run_module, clean, kRunsInRound}};
    group.check = [=] {
        run_bare();
        run_module();
        const int64_t expected = GetHash(BareDuckDB(source), "numbers");
        const BareDuckDB reader("");
        RequireSameHash("backup, bare", expected,
                        GetHash(reader, "read_parquet('" + folder + "/bare/export/numbers.parquet')"));
        RequireSameHash("backup, module", expected,
                        GetHash(reader, "read_parquet('" + folder + "/module/*/numbers.parquet')"));
        clean();
    };
    return group;
}

Group MakeRestoreGroup(const Options& options) {
    const std::string folder = options.folder + "/restore";
    const std::string exported = folder + "/export";
    const std::string target = options.folder + "/restored.duckdb";
    const uint64_t rows = Scaled(kBackupRows, options);
    const auto clean = [=] {
        std::filesystem::remove(target);
        std::filesystem::remove(target + ".wal");
    };
    const auto run_bare = [=] {
        const BareDuckDB duckdb(target, BareDuckDB::Access::writing, 0);
        duckdb.Run("IMPORT DATABASE '" + exported + "'");
        return rows;
    };
    const auto run_module = [=] {
        GetExtension()->RestoreDatabase(At(target), At(exported));
        return rows;
    };
    Group group{"restore", "row", nullptr, {}};
    group.prepare = [=] {
        RemakeFolder(folder);
        const BareDuckDB duckdb("");
        duckdb.Run(TableSql(rows));
        duckdb.Run(ExportSql(exported));
        clean();
    };
    group.cases = {{"bare", run_bare, clean, kRunsInRound}, {"module", run_module, clean, kRunsInRound}};
    group.check = [=] {
        run_bare();
        const int64_t expected = GetHash(BareDuckDB(target), "numbers");
        clean();
        run_module();
        RequireSameHash("restore", expected, GetHash(BareDuckDB(target), "numbers"));
        clean();
    };
    return group;
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

/** Prints the delays itself, because the largest matters and not the sum. */
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
