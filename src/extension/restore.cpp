#include "extension/restore.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "backup/export_scripts.h"
#include "base/errors.h"
#include "base/text.h"
#include "extension/import.h"
#include "extension/restored_file.h"
#include "objects/database.h"

namespace mduckdb {

namespace {

using Location = nbx::smart_ptr<nbx::I_Location>;

/** The file is built elsewhere, but its location has the target's text, so that errors name what the caller
    asked for. */
class BuildLocation final : public nbx::Counted<nbx::I_Location> {
  public:
    BuildLocation(Location place, Location target) : place_(std::move(place)), target_(std::move(target)) {}

    void* QueryInterface(uint32_t interface_id) override { return place_->QueryInterface(interface_id); }
    nbx::String get_Text() const override { return target_->get_Text(); }
    nbx::String get_PathText() const override { return place_->get_PathText(); }
    bool get_Exists() const override { return place_->get_Exists(); }
    Location get_Parent() const override { return place_->get_Parent(); }
    Location MakeChild(const nbx::String& name) const override { return place_->MakeChild(name); }

  private:
    const Location place_;
    const Location target_;
};

/** Creates the database and imports; the database is closed afterwards, whatever happens. */
void Import(const nbx::smart_ptr<DuckDBDatabase>& database, const nbx::I_Location& backup) {
    database->Create();
    try {
        ImportBackup(*database, backup);
        // Reports an error that closing would hide.
        database->SqlExecute(nbx::String("CHECKPOINT"), nullptr);
    } catch (...) {
        database->Close();
        throw;
    }
    database->Close();
}

void RestoreFile(const DuckDBDatabase& database, const Location& location, const nbx::I_Location& backup)
    NBX_REQUIRES(gEngineLock) {
    const std::string path = ToPath(location->get_PathText());
    FileTurn turn(EngineFiles::Get(), path);
    database.ThrowIfUsed(turn);
    try {
        RestoredFile::CheckTarget(turn);
        RestoredFile file(path);
        if (ToUtf8(FromUtf8(file.get_Path())) != file.get_Path()) {
            throw std::runtime_error("The path leads to a file whose name is not valid UTF-8");
        }
        const Location place(
            nbx::MakeObject<BuildLocation>(nbx::CreateLocation(FromUtf8(file.get_Path())), location));
        try {
            Import(nbx::MakeObject<DuckDBDatabase>(place), backup);
        } catch (...) {
            if (!turn.get_Exists() && place->get_Exists()) {
                file.ReplaceTarget(turn);
            }
            throw;
        }
        file.LimitRights(ToPath(backup.get_PathText()) + "/schema.sql");
        file.ReplaceTarget(turn);
    } catch (const std::runtime_error& error) {
        ThrowDuckDBError(location->get_Text(), error.what());
    }
}

}  // namespace

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> RestoreDatabase(const Location& database_location,
                                                             const Location& backup_folder) {
    if (!database_location) {
        throw nbx::xDBError(kNoDatabaseLocationCode);
    }
    if (!backup_folder || !backup_folder->get_Exists()) {
        throw nbx::xDBError(kNoBackupLocationCode);
    }
    const EngineLockScope lock;
    if (IsExportUnfinished(ToPath(backup_folder->get_PathText()))) {
        ThrowDuckDBError(database_location->get_Text(),
                         "The backup is incomplete: its load.sql is empty, and its schema.sql has tables");
    }
    auto database = nbx::MakeObject<DuckDBDatabase>(database_location);
    if (database->IsInMemory()) {
        Import(database, *backup_folder);
    } else {
        RestoreFile(*database, database_location, *backup_folder);
    }
    return database;
}

}  // namespace mduckdb
