#pragma once

#include <duckdb.h>

#include <string>
#include <vector>

#include "backup/stop.h"

namespace mduckdb {

/** Imports an export into a database beside its folder, which is deleted again, and compares it with the
    engine's main database. Gives a line for each difference. Throws `BackupError` when the import fails. */
std::vector<std::string> CompareExport(duckdb_database engine, const std::string& folder, BackupStop& stop);

}  // namespace mduckdb
