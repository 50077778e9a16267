#pragma once

#include <duckdb.h>

#include <string>
#include <vector>

#include "backup/stop.h"

namespace mduckdb {

/** Imports an export into a temporary database next to its folder and compares that with the engine's main
    database. Returns one line for each difference. Throws `BackupError` when the import fails. */
std::vector<std::string> CompareExport(duckdb_database engine, const std::string& folder, BackupStop& stop);

}  // namespace mduckdb
