#pragma once

#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"

namespace mduckdb {

/** As `I_DuckDBRestore::RestoreSnapshot` has it. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> RestoreSnapshot(
    const nbx::smart_ptr<nbx::I_Location>& database_location,
    const nbx::smart_ptr<nbx::I_Location>& snapshot);
/** As `I_DuckDBRestore::VerifyBackup` has it. */
nbx::String VerifyBackup(const nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>& database,
                         const nbx::smart_ptr<nbx::I_Location>& backup_folder);

}  // namespace mduckdb
