#include "extension/restore.h"

#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "objects/database.h"

namespace mduckdb {

namespace {

nbx::String BuildImportStatement(const nbx::String& folder) {
    return FromUtf8("IMPORT DATABASE " + QuoteLiteral(ToUtf8(folder)));
}

}  // namespace

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
    database->SqlExecute(BuildImportStatement(backup_folder->get_PathText()), nullptr);
    database->Close();
    return database;
}

}  // namespace mduckdb
