#include "extension/restore_snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <exception>
#include <stdexcept>
#include <string>

#include "backup/error.h"
#include "backup/files.h"
#include "backup/snapshot_copy.h"
#include "base/errors.h"
#include "base/text.h"
#include "engines/engine_files.h"
#include "extension/restored_file.h"
#include "objects/database.h"

namespace mduckdb {

namespace {

using Location = nbx::smart_ptr<nbx::I_Location>;

/** Calls `act` during the file's turn, in which nothing in this process opens the file. Throws when it is
   open here. */
template <class Act>
void DuringTurn(const DuckDBDatabase& database, const std::string& file, Act act) {
    const EngineLockScope lock;
    FileTurn turn(EngineFiles::Get(), file);
    database.ThrowIfUsed(turn);
    act(turn);
}

/** A snapshot, open to be read. With any descriptor of a file that is closed, this process loses its lock on
    the file, so no database of this process may have it open then. */
class OpenSnapshot : nbx::noncopyable {
  public:
    explicit OpenSnapshot(const std::string& path) : path_(path) {
        const EngineLockScope lock;
        const FileTurn turn(EngineFiles::Get(), path_);
        if (turn.get_UserCount() > 0 || turn.IsOpenByOtherMeans()) {
            throw BackupError(path_ + " is open in this process");
        }
        descriptor_ = OpenDescriptor(path_, O_RDONLY);
    }
    ~OpenSnapshot() {
        const EngineLockScope lock;
        try {
            const FileTurn turn(EngineFiles::Get(), path_);
            CloseUnlessInUse();
        } catch (const std::exception&) {  // No memory to keep others from opening it at this very moment.
            CloseUnlessInUse();
        }
    }
    int get_Descriptor() const noexcept { return descriptor_.get(); }

  private:
    /** Where a database has opened the file meanwhile, it stays open for as long as the process lives. */
    void CloseUnlessInUse() noexcept {
        EngineFiles::Get().Visit(
            [](void* context, const nbx::OpenEngine& engine) {
                auto& snapshot = *static_cast<Descriptor*>(context);
                struct stat ours {};
                struct stat of_engine {};
                if (fstat(snapshot.get(), &ours) == 0 && stat(engine.path, &of_engine) == 0 &&
                    ours.st_dev == of_engine.st_dev && ours.st_ino == of_engine.st_ino) {
                    snapshot.Release();
                }
            },
            &descriptor_);
        descriptor_.Close();
    }

    const std::string& path_;
    Descriptor descriptor_;
};

/** Copying takes long and leaves the engine lock to others. */
void RestoreFile(const DuckDBDatabase& database, const std::string& file, const std::string& snapshot) {
    DuringTurn(database, file, &RestoredFile::CheckTarget);
    RestoredFile restored(file);
    BackupStop stop;
    CopySnapshot(snapshot, OpenSnapshot(snapshot).get_Descriptor(), restored.get_Path(),
                 restored.get_SpillPath(), stop);
    restored.LimitRights(snapshot);
    DuringTurn(database, file, [&restored](FileTurn& turn) { restored.ReplaceTarget(turn); });
}

}  // namespace

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> RestoreSnapshot(const Location& database_location,
                                                             const Location& snapshot) {
    if (!database_location) {
        throw nbx::xDBError(kNoDatabaseLocationCode);
    }
    if (!snapshot || !snapshot->get_Exists()) {
        throw nbx::xDBError(kNoBackupLocationCode);
    }
    auto database = nbx::MakeObject<DuckDBDatabase>(database_location);
    try {
        if (database->IsInMemory()) {
            throw BackupError("A snapshot is restored into a file");
        }
        RestoreFile(*database, ToPath(database_location->get_PathText()), ToPath(snapshot->get_PathText()));
    } catch (const std::runtime_error& error) {
        ThrowDuckDBError(database_location->get_Text(), error.what());
    }
    return database;
}

nbx::String VerifyBackup(const nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>& database,
                         const nbx::smart_ptr<nbx::I_Location>& backup_folder) {
    auto* const ours = dynamic_cast<DuckDBDatabase*>(database.get());
    if (ours == nullptr) {
        throw nbx::xDBError(kNoDatabaseLocationCode);
    }
    if (!backup_folder || !backup_folder->get_Exists()) {
        throw nbx::xDBError(kNoBackupLocationCode);
    }
    return ours->VerifyBackup(*backup_folder);
}

}  // namespace mduckdb
