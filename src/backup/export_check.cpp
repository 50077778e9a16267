#include "backup/export_check.h"

#include <filesystem>

#include "backup/comparison.h"
#include "backup/export_scripts.h"
#include "backup/file_engine.h"
#include "backup/part_folder.h"
#include "base/text.h"

namespace mduckdb {

namespace {

namespace fs = std::filesystem;

/** Creates the database as a restore does: with the import statement, and where that fails, piece by piece in
    a new file. */
void Import(const std::string& file, const std::string& folder, const std::string& memory_limit,
            const std::string& spill, BackupStop& stop) {
    {
        const FileEngine engine(file, FileEngine::Access::writing, memory_limit, spill);
        SqlWorker worker(engine.get(), stop);
        if (worker.TryRun("IMPORT DATABASE " + QuoteLiteral(folder))) {
            return;
        }
        stop.Check();
    }
    fs::remove(file);
    fs::remove(file + ".wal");
    const FileEngine engine(file, FileEngine::Access::writing, memory_limit, spill);
    SqlWorker worker(engine.get(), stop);
    RunExportScripts(ReadExportScripts(folder), [&worker](const std::string& sql) { worker.Run(sql); });
}

}  // namespace

std::vector<std::string> CompareExport(duckdb_database engine, const std::string& folder, BackupStop& stop) {
    SqlWorker source(engine, stop);
    PrepareForFacts(source);
    source.Run("BEGIN TRANSACTION READ ONLY");
    const std::string limit = source.Text("SELECT current_setting('memory_limit')");
    const std::string path = source.Text(
        "SELECT coalesce(path, 'memory') FROM duckdb_databases() WHERE database_name = current_database()");
    const PartFolder part(folder);
    const std::string file = part / fs::path(path).filename().string();
    Import(file, folder, limit, part / "spill", stop);
    const FileEngine scratch(file, FileEngine::Access::reading, limit, part / "spill");
    SqlWorker copy(scratch.get(), stop);
    PrepareForFacts(copy);
    return CompareFacts(ReadFacts(source), ReadFacts(copy), {"database", "backup"});
}

}  // namespace mduckdb
