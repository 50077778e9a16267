#include "databases/backups.h"

#include <fmt/format.h>

#include <mutex>

#include "databases/export_listing.h"
#include "databases/export_manifest.h"
#include "databases/interruption.h"
#include "mirona/extension_api.h"
#include "nbx/hooks.h"
#include "table/procedures.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

using LocationPtr = nbx::smart_ptr<nbx::I_Location>;

/** Finds out where the module puts a backup: replaces the host's hook within a scope. Only one at a time. Any
    thread may read the folder. */
class BackupFolderSpy {
  public:
    BackupFolderSpy() : original_(nbx::mrsql::gCreateBackupLocation) {
        gCurrent = this;
        nbx::mrsql::gCreateBackupLocation = &CreateBackupLocation;
    }
    ~BackupFolderSpy() {
        nbx::mrsql::gCreateBackupLocation = original_;
        gCurrent = nullptr;
    }
    BackupFolderSpy(const BackupFolderSpy&) = delete;
    BackupFolderSpy& operator=(const BackupFolderSpy&) = delete;

    std::string get_Folder() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return folder_;
    }

  private:
    static LocationPtr CreateBackupLocation(const LocationPtr& folder) {
        LocationPtr location = gCurrent->original_(folder);
        const std::lock_guard<std::mutex> lock(gCurrent->mutex_);
        gCurrent->folder_ = ToUtf8(location->get_PathText());
        return location;
    }

    static BackupFolderSpy* gCurrent;
    LocationPtr (*original_)(const LocationPtr& folder);
    std::mutex mutex_;
    std::string folder_;
};
BackupFolderSpy* BackupFolderSpy::gCurrent = nullptr;

void PrintHeading(const BackupReport& report, const std::string& folder) {
    const std::string text =
        fmt::format("Backup folder: {}\nSize: {}\n", folder, DescribeSize(GetFolderSize(folder)));
    if (report.is_for_people) {
        report.out.Write(text);
    } else {
        fmt::print(stderr, "{}", text);
    }
}

int64_t CountExported(const ProcedureRegistry& registry, const ExportedTable& table) {
    return CallForNumber(registry, "parquet_count", {{table.file}});
}

int64_t CountInDatabase(const DatabasePtr& database, const std::string& table) {
    const auto cursor =
        database->SqlSelect(FromUtf8("SELECT count(*) FROM " + table), nbx::mrsql::kServerCursor, nullptr);
    cursor->NextRecord();
    return cursor->get_Value(0)->get_LLong();
}

}  // namespace

std::string BackUp(const ProcedureRegistry& registry, const DatabasePtr& database, const std::string& folder,
                   const BackupReport& report) {
    BackupFolderSpy spy;
    {
        const InterruptWatch watch(
            [&database] { database->Interrupt(); },
            [&spy] { return DescribeSize(GetFolderSize(spy.get_Folder())) + " written"; });
        database->Backup(folder.empty() ? LocationPtr() : MakeLocation(folder));
    }
    PrintHeading(report, spy.get_Folder());
    report.printer.Begin({{"table", 0, MIRONA_TYPE_TEXT}, {"rows", 0, MIRONA_TYPE_INT64}});
    const std::vector<ExportedTable> tables = ReadExport(spy.get_Folder());
    std::vector<int64_t> rows;
    for (const ExportedTable& table : tables) {
        rows.push_back(CountExported(registry, table));
        report.printer.Add({{table.name}, {rows.back()}});
    }
    report.printer.End();
    WriteExportManifest(spy.get_Folder(), tables, rows);
    return spy.get_Folder();
}

bool Restore(const ProcedureRegistry& registry, const std::string& database, const std::string& folder,
             const BackupReport& report) {
    const std::vector<ExportedTable> tables = ReadExport(folder);
    CheckExportManifest(folder);
    {
        const InterruptWatch watch([] { fmt::print(stderr, "\nA restore cannot be interrupted.\n"); },
                                   [&] { return DescribeSize(GetFolderSize(folder)) + " to read"; },
                                   "cannot be interrupted");
        GetExtension()->RestoreDatabase(MakeLocation(database), MakeLocation(folder));
    }
    PrintHeading(report, folder);
    const DatabasePtr restored = OpenDatabase(database, IfMissing::kFail, true);
    report.printer.Begin({{"table", 0, MIRONA_TYPE_TEXT},
                          {"rows_in_backup", 0, MIRONA_TYPE_INT64},
                          {"rows_restored", 0, MIRONA_TYPE_INT64},
                          {"result", 0, MIRONA_TYPE_TEXT}});
    bool is_equal = true;
    for (const ExportedTable& table : tables) {
        const int64_t exported = CountExported(registry, table);
        const int64_t found = CountInDatabase(restored, table.name);
        report.printer.Add(
            {{table.name}, {exported}, {found}, {std::string(exported == found ? "same" : "DIFFERS")}});
        is_equal = is_equal && exported == found;
    }
    report.printer.End();
    restored->Close();
    return is_equal;
}

}  // namespace mduckdb_host
