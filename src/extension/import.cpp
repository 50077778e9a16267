#include "extension/import.h"

#include <string>

#include "backup/error.h"
#include "backup/export_scripts.h"
#include "base/text.h"
#include "nbx/exception.h"

namespace mduckdb {

namespace {

nbx::String BuildImportStatement(const nbx::String& folder) {
    return FromUtf8("IMPORT DATABASE " + QuoteLiteral(ToPath(folder)));
}

/** False when the statements fail too. */
bool ImportInPieces(nbx::mrsql::I_DuckDBDatabase& database, const nbx::I_Location& backup) {
    try {
        const ExportScripts scripts = ReadExportScripts(ToPath(backup.get_PathText()));
        database.Create();
        RunExportScripts(
            scripts, [&database](const std::string& sql) { database.SqlExecute(FromUtf8(sql), nullptr); });
        return true;
    } catch (const nbx::xInterruptError&) {
        throw;
    } catch (const nbx::xException&) {
        return false;
    } catch (const BackupError&) {
        return false;
    }
}

}  // namespace

void ImportBackup(nbx::mrsql::I_DuckDBDatabase& database, const nbx::I_Location& backup) {
    try {
        database.SqlExecute(BuildImportStatement(backup.get_PathText()), nullptr);
    } catch (const nbx::mrsql::xDuckDBError&) {
        if (!ImportInPieces(database, backup)) {
            throw;
        }
    }
}

}  // namespace mduckdb
