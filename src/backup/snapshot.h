#pragma once

#include <duckdb.h>

#include <string>

#include "backup/stop.h"

namespace mduckdb {

/** Copies the main database of an engine, in which others go on committing, into a new file, and writes a
   manifest beside it. The copy is built in a folder next to the target and is renamed last: a file with the
   target's name is complete and was compared with the source. The engine must stay open during the call.
   Throws `BackupError`, and then leaves nothing behind. */
void TakeSnapshot(duckdb_database engine, const std::string& target, BackupStop& stop);

}  // namespace mduckdb
