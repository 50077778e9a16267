#include "backup/snapshot.h"

#include <fcntl.h>

#include <chrono>
#include <filesystem>
#include <optional>

#include "backup/comparison.h"
#include "backup/cut.h"
#include "backup/file_engine.h"
#include "backup/files.h"
#include "backup/manifest.h"
#include "backup/part_folder.h"

namespace mduckdb {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr ComparedNames kNames{"database", "snapshot"};
/** How many differences an error lists; more would not help. */
constexpr std::size_t kMostLines = 20;

/** The database that a snapshot copies. */
struct Source {
    duckdb_database engine;
    /** The path as DuckDB opened it, which determines the log's name. */
    std::string file;
    bool is_read_only;
};

/** Throws `BackupError` for a database that has no file to copy. */
Source Describe(duckdb_database engine, BackupStop& stop) {
    SqlWorker worker(engine, stop);
    const TextRow row =
        worker
            .Rows(
                "SELECT path, readonly::VARCHAR, encrypted::VARCHAR, type FROM duckdb_databases() "
                "WHERE database_name = current_database()")
            .at(0);
    if (row[0].value_or("").empty() || row[3] != "duckdb") {
        throw BackupError("A snapshot needs a database in a file");
    }
    if (row[2] == "true") {
        throw BackupError(*row[0] + " is encrypted: a snapshot of it cannot be made");
    }
    return {engine, *row[0], row[1] == "true"};
}

/** A manifest without its snapshot was left by a process that was killed between two renames; what else has
    the manifest's name is not ours. */
void ThrowIfTaken(const std::string& target) {
    if (fs::exists(fs::symlink_status(target))) {
        throw BackupError(target + " is there already");
    }
    const std::string manifest = ManifestOf(target);
    if (fs::exists(fs::symlink_status(manifest)) &&
        (!fs::is_regular_file(manifest) || !ReadManifest(ReadWhole(manifest)))) {
        throw BackupError(manifest + " is there already, and is not the manifest of a snapshot");
    }
}

/** One snapshot while it is being taken. */
class SnapshotJob : nbx::noncopyable {
  public:
    SnapshotJob(const Source& source, const std::string& target, BackupStop& stop)
        : source_(source),
          target_(target),
          stop_(stop),
          part_(target),
          // The copy keeps the file's name, because its catalog is named after it, and views and macros may
          // contain that name.
          copy_(part_ / fs::path(source.file).filename().string()) {}

    void Run() {
        const Clock::time_point start = Clock::now();
        Clock::time_point copied;
        {
            Cut cut(source_.engine, source_.file, source_.is_read_only, stop_);
            memory_limit_ = cut.get_Reader().Text("SELECT current_setting('memory_limit')");
            const std::vector<CatalogFact> catalog = ReadCatalog(cut.get_Reader());
            Copy(cut.get_LogSize());
            cut.EndGuard();
            FoldLog(cut.get_LogSize());
            copied = Clock::now();
            Check(cut, catalog);
        }
        manifest_.duckdb_version = duckdb_library_version();
        manifest_.date = DateNow();
        manifest_.size = FileSize(copy_);
        manifest_.sha256 = FileSum(copy_, stop_);
        manifest_.copy_seconds = std::chrono::duration<double>(copied - start).count();
        manifest_.check_seconds = std::chrono::duration<double>(Clock::now() - copied).count();
        Publish();
    }

  private:
    void Copy(uint64_t log_size) {
        const int main = FindOpenDescriptor(source_.file);
        if (main < 0) {
            throw BackupError(source_.file + " is not the file that the database has open");
        }
        OpenDescriptor(copy_, O_WRONLY | O_CREAT | O_EXCL).Close();
        LimitRights(copy_, main);
        CopyBytes(main, FileSize(source_.file), copy_, stop_);
        if (log_size > 0) {
            OpenDescriptor(LogOf(copy_), O_WRONLY | O_CREAT | O_EXCL).Close();
            // DuckDB has the log open for writing only and holds no lock on it.
            const Descriptor log = OpenDescriptor(LogOf(source_.file), O_RDONLY);
            CopyBytes(log.get(), log_size, LogOf(copy_), stop_);
        }
    }

    void FoldLog(uint64_t log_size) {
        if (log_size == 0) {
            return;
        }
        {
            const FileEngine engine(copy_, FileEngine::Access::writing, memory_limit_, part_ / "spill");
            SqlWorker worker(engine.get(), stop_);
            worker.Run("CHECKPOINT");
        }
        if (FileSize(LogOf(copy_)) > 0) {
            throw BackupError("The snapshot's log could not be folded into its file");
        }
        SyncToDisk(copy_);
    }

    /** Reads the whole copy, and compares it with the source as of the cut. */
    void Check(Cut& cut, const std::vector<CatalogFact>& catalog) {
        const FileEngine engine(copy_, FileEngine::Access::reading, memory_limit_, part_ / "spill");
        SqlWorker worker(engine.get(), stop_);
        PrepareForFacts(worker);
        const DatabaseFacts copy = ReadFacts(worker);
        std::vector<std::string> lines =
            CompareCatalogs(catalog, copy.catalog, kNames, !source_.is_read_only);
        if (cut.get_IsReaderExact()) {
            const std::vector<std::string> rows =
                CompareTables(ReadTables(cut.get_Reader()), copy.tables, kNames);
            lines.insert(lines.end(), rows.begin(), rows.end());
            ThrowIfDifferent(lines);
            manifest_.compared = "rows";
        } else {
            // A difference may have been committed between the reader's moment and the cut.
            manifest_.compared = lines.empty() ? "structure" : "nothing";
        }
        manifest_.objects = CountObjects(copy.catalog);
        manifest_.tables = copy.tables;
        manifest_.storage_version = worker.Text(
            "SELECT coalesce(tags['storage_version'], '') FROM duckdb_databases() "
            "WHERE database_name = current_database()");
    }

    static void ThrowIfDifferent(const std::vector<std::string>& lines) {
        if (lines.empty()) {
            return;
        }
        std::string text = "The snapshot is not what the database holds:";
        for (std::size_t i = 0; i < lines.size() && i < kMostLines; ++i) {
            text += "\n" + lines[i];
        }
        throw BackupError(text);
    }

    void Publish() {
        const std::string manifest = part_ / "manifest.json";
        WriteWhole(manifest, WriteManifest(manifest_));
        LimitRights(manifest, OpenDescriptor(copy_, O_RDONLY).get());
        const std::string parent = fs::path(target_).parent_path().string();
        // Of two snapshots to one file the slower one must not replace the manifest of the other.
        const Descriptor turn = LockFolder(parent, stop_);
        stop_.Check();
        ThrowIfTaken(target_);
        fs::rename(manifest, ManifestOf(target_));
        bool is_placed = false;
        try {
            RenameToFreeName(copy_, target_);
            is_placed = true;
            SyncToDisk(parent);
        } catch (...) {
            std::error_code ignored;
            if (is_placed) {
                fs::remove(target_, ignored);
            }
            fs::remove(ManifestOf(target_), ignored);
            throw;
        }
    }

    const Source& source_;
    const std::string& target_;
    BackupStop& stop_;
    PartFolder part_;
    std::string copy_;
    std::string memory_limit_;
    SnapshotManifest manifest_;
};

}  // namespace

void TakeSnapshot(duckdb_database engine, const std::string& target, BackupStop& stop) {
    try {
        ThrowIfTaken(target);
        const Source source = Describe(engine, stop);
        SnapshotJob(source, target, stop).Run();
    } catch (const fs::filesystem_error& error) {
        throw BackupError(error.what());
    }
}

}  // namespace mduckdb
