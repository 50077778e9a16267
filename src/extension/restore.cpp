#include "extension/restore.h"

#include <utility>

#include "base/errors.h"
#include "extension/import.h"
#include "objects/database.h"

namespace mduckdb {

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> RestoreDatabase(
    nbx::smart_ptr<nbx::I_Location> database_location, nbx::smart_ptr<nbx::I_Location> backup_folder) {
    if (!database_location) {
        throw nbx::xDBError(kNoDatabaseLocationCode);
    }
    if (!backup_folder || !backup_folder->get_Exists()) {
        throw nbx::xDBError(kNoBackupLocationCode);
    }
    const EngineLockScope lock;
    auto database = nbx::MakeObject<DuckDBDatabase>(std::move(database_location));
    if (database->get_Exists()) {
        database->Drop();
    }
    database->Create();
    ImportBackup(*database, *backup_folder);
    database->Close();
    return database;
}

}  // namespace mduckdb
