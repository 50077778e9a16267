#pragma once

#include <duckdb.h>

#include <string>

#include "backup/stop.h"

namespace mduckdb {

/** Copies the main database of an engine, in which others go on committing, into a new file, and writes a
   manifest beside it. The copy grows in a folder beside the target and is renamed last: what has the target's
   name is whole and was compared with the source. The engine must stay open during the call. Throws
   `BackupError`, and then leaves nothing behind. */
void TakeSnapshot(duckdb_database engine, const std::string& target, BackupStop& stop);

}  // namespace mduckdb
