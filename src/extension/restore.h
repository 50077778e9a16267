#pragma once

#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"

namespace mduckdb {

/** Makes the database anew, dropping the one that is there, and fills it from a backup folder; gives it
    closed. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> RestoreDatabase(
    nbx::smart_ptr<nbx::I_Location> database_location, nbx::smart_ptr<nbx::I_Location> backup_folder);

}  // namespace mduckdb
