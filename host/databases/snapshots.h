#pragma once

#include <string>
#include <vector>

#include "databases/backups.h"

namespace mduckdb_host {

/** Copies an open database into a new file, and prints the file, its size and the rows of each table. */
void TakeSnapshot(const DatabasePtr& database, const std::string& file, const BackupReport& report);

/** Restores a snapshot into the database and prints the number of rows of each table in both. Returns false
    when they differ. */
bool RestoreFromSnapshot(const std::string& database, const std::string& file, const BackupReport& report);

/** Whether a restore should treat this path as a snapshot: it is a file and not a folder. */
bool IsSnapshot(const std::string& path);

/** Imports the export into a temporary database; returns one line for each difference from the database. */
std::vector<std::string> VerifyExport(const DatabasePtr& database, const std::string& folder);

}  // namespace mduckdb_host
