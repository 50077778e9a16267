#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "modules/files_under_stress.h"
#include "modules/loaded_module.h"
#include "nbx/mrsql/duckdb_statement.h"

/** A database object that every worker uses. */
class SharedDatabase {
  public:
    explicit SharedDatabase(StressedFile& of) : file(&of) {}
    DatabasePtr Get() const {
        const std::scoped_lock lock(mutex_);
        return database_;
    }
    /** The object that was there may die here, or wherever its last reference is. */
    void Put(DatabasePtr database) {
        const std::scoped_lock lock(mutex_);
        database_.swap(database);
    }

    StressedFile* file;

  private:
    mutable std::mutex mutex_;
    DatabasePtr database_;
};

/** What the workers have in common. */
struct StressPlan {
    std::string folder;
    std::vector<std::unique_ptr<LoadedModule>> modules{};
    std::vector<std::unique_ptr<StressedFile>> files{};
    /** One for each file, name and module. */
    std::vector<std::unique_ptr<SharedDatabase>> databases{};
    std::string export_folder{};
    std::string snapshot{};
    std::string parquet{};
    std::atomic<bool> is_over{false};
    std::atomic<uint64_t> steps{0};
    /** Restores that found another file in the place when they had ended. */
    std::atomic<uint64_t> replacements{0};
    /** Operations that did what they should, by their place in the worker's table. */
    std::array<std::atomic<uint64_t>, 32> successes{};
};

/** Does one random operation after another until the plan is over. */
class StressWorker {
  public:
    StressWorker(StressPlan& plan, int64_t number, uint64_t seed)
        : plan_(plan), number_(number), random_(seed) {}
    void Run();

    struct Operation {
        const char* name;
        void (StressWorker::*run)();
        unsigned weight;
    };
    static const std::vector<Operation>& GetOperations();

  private:
    // The operations; each may throw an exception of the host.
    void OpenOwn();
    void OpenShared();
    void CloseShared();
    void ReplaceShared();
    void InsertBySql();
    void InsertByParameters();
    void InsertByStatement();
    void InsertInTransaction();
    void CountOwnRows();
    void ReadByServerCursor();
    void ReadByClientCursor();
    void ReadByQueryResult();
    void UseKeptCursor();
    void UseKeptStatement();
    void UseKeptResult();
    void AskShared();
    void AskExtension();
    void InterruptShared();
    void BackUp();
    void TakeSnapshot();
    void DropFile();
    void CreateFile();
    void RestoreExport();
    void RestoreSnapshot();
    void ReadRestored();
    void FetchDuckDB();
    void CountParquet();

    std::size_t Pick(std::size_t count) { return random_() % count; }
    LoadedModule& PickModule() { return *plan_.modules[Pick(plan_.modules.size())]; }
    SharedDatabase& PickShared() { return *plan_.databases[Pick(plan_.databases.size())]; }
    /** Any file but the one that only restores use. */
    StressedFile& PickFile() { return *plan_.files[Pick(plan_.files.size() - 1)]; }
    StressedFile& FileOf(FileUse use);
    DatabasePtr MakeDatabase(const std::string& path);
    void Insert(StressedFile& file, const std::function<int64_t(int64_t number)>& insert);
    std::string NewName(const char* kind);
    /** Calls `restore` with the location of a file that may be replaced. */
    template <class Restore>
    void ReplaceFile(Restore restore);
    template <class Kept>
    void Keep(std::vector<Kept>& kept, Kept child);

    StressPlan& plan_;
    const int64_t number_;
    std::mt19937_64 random_;
    int64_t last_name_ = 0;
    std::vector<nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement>> statements_{};
    std::vector<nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor>> cursors_{};
    std::vector<nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult>> results_{};
};
