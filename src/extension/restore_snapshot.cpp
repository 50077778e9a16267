#include "extension/restore_snapshot.h"

#include <filesystem>
#include <utility>

#include "backup/error.h"
#include "backup/restoration.h"
#include "base/errors.h"
#include "base/text.h"
#include "engines/engine_files.h"
#include "objects/database.h"

namespace mduckdb {

namespace {

/** The lock is given back, since it would also refuse the locks that `Restoration` takes. */
void RequireReplaceable(const FileTurn& turn) {
    FileLock lock;
    std::string reason;
    if (turn.get_Exists() && !lock.Take(turn.get_Look(), reason)) {
        throw BackupError("Can not be dropped. " + reason);
    }
}

/** During the file's turn nothing in this process opens the file. */
void PutInPlace(Restoration& restoration, const std::string& file) NBX_REQUIRES(gEngineLock) {
    FileTurn turn(EngineFiles::Get(), file);
    if (const uint32_t count = turn.get_UserCount()) {
        throw BackupError("Can not be dropped. " + std::to_string(count) + " connections are alive.");
    }
    if (turn.IsOpenByOtherMeans()) {
        throw BackupError(file + " is in use in this process");
    }
    RequireReplaceable(turn);
    turn.ClaimPlace();
    restoration.PutInPlace();
    turn.LookAgain();
}

}  // namespace

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> RestoreSnapshot(
    nbx::smart_ptr<nbx::I_Location> database_location, nbx::smart_ptr<nbx::I_Location> snapshot) {
    if (!database_location) {
        throw nbx::xDBError(kNoDatabaseLocationCode);
    }
    if (!snapshot || !snapshot->get_Exists()) {
        throw nbx::xDBError(kNoBackupLocationCode);
    }
    const nbx::String path = database_location->get_Text();
    const nbx::String key = database_location->get_PathText();
    const std::string file = ToUtf8(key);
    try {
        if (file == ":memory:") {
            throw BackupError("A snapshot is restored into a file");
        }
        BackupStop stop;
        Restoration restoration(ToUtf8(snapshot->get_PathText()), file, stop);
        const EngineLockScope lock;
        PutInPlace(restoration, file);
        return nbx::MakeObject<DuckDBDatabase>(std::move(database_location));
    } catch (const BackupError& error) {
        ThrowDuckDBError(path, error.what());
    } catch (const std::filesystem::filesystem_error& error) {
        ThrowDuckDBError(path, error.what());
    }
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
