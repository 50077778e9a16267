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
    /** Copies the database into a new file, which is one DuckDB database again, while others go on
       committing. Holds exactly what had been committed at one moment of the call. The copy is compared with
       the database before it gets the file's name; a manifest with its checksum is written beside it, as
        FILE.manifest.json. `CHECKPOINT` fails while the file is copied, and `FORCE CHECKPOINT` waits.

        Throws `xDuckDBError`, also for a file that is there already, and `xInterruptError` after
        `Interrupt`; then nothing is left behind. */
    virtual void Snapshot(smart_ptr<I_Location> file) = 0;
};

/** Number of `I_DuckDBRestore` for `QueryInterface` of the extension. */
constexpr uint32_t kDuckDBRestoreInterfaceId = 7301;

/** What gives backups back, and tells whether they can. */
class NBX_API I_DuckDBRestore {
  public:
    virtual ~I_DuckDBRestore();
    /** Makes the database a copy of a snapshot, which stays; gives the database closed. The snapshot's
       checksum is compared with its manifest first, and a file that is there is replaced at the very end.
        Throws `xDuckDBError`, and `xDBError` 0x51501 or 0x66000 as `RestoreDatabase` does; then the database
        is as it was. */
    virtual smart_ptr<I_DuckDBDatabase> RestoreSnapshot(smart_ptr<I_Location> database_location,
                                                        smart_ptr<I_Location> snapshot) = 0;
    /** Imports an export into a database that is deleted again, and compares it with the open database that
       it was made of. Gives a line for each difference; an empty text when there is none. Throws
        `xDuckDBError` when the export cannot be imported. */
    virtual String VerifyBackup(smart_ptr<I_DuckDBDatabase> database,
                                smart_ptr<I_Location> backup_folder) = 0;
};

}  // namespace nbx::mrsql
