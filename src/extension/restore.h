#pragma once

#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"

namespace mduckdb {

/** Restores a backup folder into the database's file and returns the database, closed. The new file is built
   next to the old one and replaces it in one rename at the end, so a failure leaves the old one unchanged.
   Throws `xDBError` without a location or folder, `xDuckDBError` when the file is in use or the import
   fails. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> RestoreDatabase(
    const nbx::smart_ptr<nbx::I_Location>& database_location,
    const nbx::smart_ptr<nbx::I_Location>& backup_folder);

}  // namespace mduckdb
