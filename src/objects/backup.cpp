#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "backup/error.h"
#include "backup/files.h"
#include "base/errors.h"
#include "base/folders.h"
#include "base/holders.h"
#include "base/text.h"
#include "duckdb_internals/failures.h"
#include "nbx/file.h"
#include "nbx/hooks.h"
#include "objects/database.h"
#include "objects/operation.h"
#include "objects/side_connection.h"

namespace mduckdb {

namespace {

using Location = nbx::smart_ptr<nbx::I_Location>;

/** The folder that holds backups: the server's own, the caller's, or the one next to the database. */
Location ChooseFolder(Location wished, const nbx::I_Location& database) {
    const auto get_server_folder = nbx::mrsql::gServerBackupLocation;
    Location server = get_server_folder != nullptr ? get_server_folder() : nullptr;
    if (server) {
        return server;
    }
    if (wished) {
        return wished;
    }
    const Location parent = database.get_Parent();
    return parent ? nbx::PrepareFolder(parent, "Backup/") : nullptr;
}

bool IsFolderThere(const Location& location) {
    const auto* folder =
        location ? static_cast<nbx::I_Folder*>(location->QueryInterface(nbx::kFolderInterfaceId)) : nullptr;
    return folder != nullptr && folder->get_Exists();
}

/** Marks the backup's folder as one, with the database's name. */
void WriteMarker(const nbx::I_Location& backup, const nbx::String& database_path) {
    const char* suffix = nbx::gmDuckDB_backup_sfx;
    nbx::String name = database_path;
    name += ".";
    name += suffix;
    const auto file = nbx::MakeObject<nbx::FileWin>();
    file->put_Location(backup.MakeChild(name));
    file->Create();
    file->Write(suffix, 0, static_cast<uint32_t>(std::strlen(suffix)));
}

std::string BuildExportStatement(const nbx::I_Location& backup) {
    return "EXPORT DATABASE " + QuoteLiteral(ToPath(backup.get_PathText())) +
           " ( FORMAT PARQUET, COMPRESSION ZSTD, ROW_GROUP_SIZE 100_000, PARQUET_VERSION V2 )";
}

/** Removes the access rights of a file or folder that the database's file does not grant. Users that may read
    the file may also enter the folder. A failure is ignored: the backup matters more. */
void LimitRights(int parent, const char* name, mode_t model, bool is_folder) {
    struct stat info {};
    if (fstatat(parent, name, &info, 0) == 0) {
        const mode_t allowed = is_folder ? model | S_IRWXU | ((model & 0444) >> 2) : model;
        [[maybe_unused]] const int ignored = fchmodat(parent, name, info.st_mode & allowed & 0777, 0);
    }
}

/** Gives a backup no more access rights than the database has; the folder first. */
void LimitRightsOfBackup(const std::string& backup, const std::string& database) {
    struct stat info {};
    if (stat(database.c_str(), &info) != 0) {
        return;
    }
    LimitRights(AT_FDCWD, backup.c_str(), info.st_mode & 0777, true);
    VisitEntries(OpenFolder(opendir(backup.c_str()), &closedir), [&info](int folder, const char* name) {
        LimitRights(folder, name, info.st_mode & 0777, false);
    });
}

bool IsFile(int parent, const char* name) {
    struct stat info {};
    return fstatat(parent, name, &info, 0) == 0 && S_ISREG(info.st_mode);
}

/** Waits until the disk holds the backup, for which DuckDB does not wait: a disk or a server may refuse what
   it has taken at first. Sets the error on failure. Nothing for a folder that the system does not know. */
void SyncBackup(const std::string& backup, Failure& error) {
    const OpenFolder entries(opendir(backup.c_str()), &closedir);
    if (!entries) {
        return;
    }
    try {
        VisitEntries(entries, [&backup](int folder, const char* name) {
            if (IsFile(folder, name)) {
                SyncToDisk(backup + "/" + name);
            }
        });
        SyncToDisk(backup);
        SyncToDisk(backup + "/..");
    } catch (const BackupError& failure) {
        error = {failure.what(), nullptr};
    }
}

/** The export replaces an earlier one file by file. Without its last file, what is there meanwhile is not
   taken for a backup. */
void BreakOldExport(const std::string& backup) {
    unlink((backup + "/load.sql").c_str());
}

/** An export that runs without the engine lock; closing the database waits for its end. */
class RunningExport : nbx::noncopyable {
  public:
    explicit RunningExport(ExportGate& gate) NBX_REQUIRES(gEngineLock) : gate_(gate) { gate_.Begin(); }
    ~RunningExport() { gate_.End(); }

  private:
    ExportGate& gate_;
};

/** False and the error when the export fails. */
bool Export(SideConnection& connection, const std::string& statement, const std::string& backup,
            Failure& error) {
    // Prepared rather than run as a plain query: only then does an interrupt that comes before the query
    // begins count.
    PreparedHolder prepared;
    if (duckdb_prepare(connection.get(), statement.c_str(), prepared.Receive()) != DuckDBSuccess) {
        error = FailureOf(prepared.get(), "Unknown DuckDB backup error");
        return false;
    }
    BreakOldExport(backup);
    ResultHolder result;
    if (connection.get_Interruptible().ExecutePrepared(prepared.get(), result.Receive()) != DuckDBSuccess) {
        error = FailureOf(*result, "Unknown DuckDB backup error");
        return false;
    }
    return true;
}

}  // namespace

std::unique_ptr<SideConnection> DuckDBDatabase::PrepareBackup(Location folder, BackupPlace& place) {
    link_->RequireConnection();
    folder = ChooseFolder(std::move(folder), *location_);
    if (!IsFolderThere(folder)) {
        ThrowError("DuckDBDatabase backup folder is not available");
    }
    auto connection = std::make_unique<SideConnection>(link_, engine_);
    const auto create_backup = nbx::mrsql::gCreateBackupLocation;
    const Location backup = create_backup != nullptr ? create_backup(folder) : nullptr;
    link_->RequireConnection();  // the host may have closed the database meanwhile
    if (!backup) {
        ThrowError("DuckDBDatabase backup folder is not available");
    }
    WriteMarker(*backup, location_->get_Text());
    place.statement = BuildExportStatement(*backup);
    place.path = ToPath(backup->get_PathText());
    place.is_own = !(backup->get_PathText() == folder->get_PathText());
    if (place.is_own) {
        LimitRightsOfBackup(place.path, ToPath(path_));
    }
    return connection;
}

void DuckDBDatabase::Backup(Location folder) {
    const nbx::String path = location_->get_Text();
    Failure error;
    bool is_interrupted = false;
    {
        BackupPlace place;
        std::optional<RunningExport> running;
        // Released before the export counts as ended, since the engine may be closed from then on.
        std::unique_ptr<SideConnection> connection;
        {
            const EngineLockScope lock;
            connection = PrepareBackup(std::move(folder), place);
            running.emplace(export_gate_);
        }
        CensusEntry entry(CensusLine::kBackup, link_->get_Census().get_Number());
        entry.Enter();
        entry.BeginRunning();
        std::optional<Deadline> deadline;
        const uint64_t limit = link_->get_TimeLimit();
        SetDeadline(deadline, limit, connection->get_Interruptible());
        const bool is_exported = Export(*connection, place.statement, place.path, error);
        if (!is_exported) {
            is_interrupted = connection->get_Interruptible().TakeInterrupted();
            if (deadline && deadline->get_HasCut()) {
                error = {DescribeCut(limit), nullptr};
            }
        }
        deadline.reset();
        if (place.is_own) {
            LimitRightsOfBackup(place.path, ToPath(path_));
        }
        if (is_exported) {
            SyncBackup(place.path, error);
        }
    }
    // A thread that waited for the export may have closed and destroyed this object by now.
    if (is_interrupted) {
        const EngineLockScope lock;
        ThrowInterrupted();
    }
    if (!error.text.empty()) {
        const EngineLockScope lock;
        ThrowDuckDBError(path, error);
    }
}

}  // namespace mduckdb
