#pragma once

#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"

namespace mduckdb {

/** Implements `I_DuckDBRestore::RestoreSnapshot`. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> RestoreSnapshot(
    const nbx::smart_ptr<nbx::I_Location>& database_location,
    const nbx::smart_ptr<nbx::I_Location>& snapshot);
/** Implements `I_DuckDBRestore::VerifyBackup`. */
nbx::String VerifyBackup(const nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>& database,
                         const nbx::smart_ptr<nbx::I_Location>& backup_folder);

}  // namespace mduckdb
