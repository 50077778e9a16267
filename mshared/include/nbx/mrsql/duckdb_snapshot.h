#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBSnapshot` for `QueryInterface` of a database. */
constexpr uint32_t kDuckDBSnapshotInterfaceId = 7300;

/** Snapshots of an open database. */
class NBX_API I_DuckDBSnapshot {
  public:
    virtual ~I_DuckDBSnapshot();
    /** Copies the database into a new DuckDB database file while others go on committing. The copy holds
       exactly what had been committed at one moment of the call. The copy is compared with the database
       before it gets the file's name; a manifest with its checksum is written next to it, as
       FILE.manifest.json. `CHECKPOINT` fails while the file is copied, and `FORCE CHECKPOINT` waits.

        Throws `xDuckDBError`, for example if the file already exists, and `xInterruptError` after
        `Interrupt`; then nothing is left behind. */
    virtual void Snapshot(smart_ptr<I_Location> file) = 0;
};

/** Number of `I_DuckDBRestore` for `QueryInterface` of the extension. */
constexpr uint32_t kDuckDBRestoreInterfaceId = 7301;

/** Restores snapshots, and verifies that backups can be restored. */
class NBX_API I_DuckDBRestore {
  public:
    virtual ~I_DuckDBRestore();
    /** Restores a snapshot into the database's file and returns the database closed; the snapshot stays. The
       snapshot's checksum is compared with its manifest first, and an existing file is replaced at the very
       end. Throws `xDuckDBError`, and `xDBError` 0x51501 or 0x66000 as `RestoreDatabase` does; then the
       database is unchanged. */
    virtual smart_ptr<I_DuckDBDatabase> RestoreSnapshot(smart_ptr<I_Location> database_location,
                                                        smart_ptr<I_Location> snapshot) = 0;
    /** Imports an export into a temporary database and compares that with the open database from which the
       export was made. Returns one line for each difference; an empty text when there is none. Throws
       `xDuckDBError` when the export cannot be imported. */
    virtual String VerifyBackup(smart_ptr<I_DuckDBDatabase> database,
                                smart_ptr<I_Location> backup_folder) = 0;
};

}  // namespace nbx::mrsql
