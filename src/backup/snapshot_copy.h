#pragma once

#include <string>

#include "backup/stop.h"

namespace mduckdb {

/** Copies a snapshot, which is open as `source`, to a new file, and checks that it is what its manifest
   describes and that DuckDB can read it. `spill` is a folder for DuckDB's temporary files. Throws
   `BackupError`, and `BackupInterrupted` when it is stopped; the caller deletes the copy then. */
void CopySnapshot(const std::string& snapshot, int source, const std::string& copy, const std::string& spill,
                  BackupStop& stop);

}  // namespace mduckdb
