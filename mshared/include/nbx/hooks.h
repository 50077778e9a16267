#pragma once

#include "nbx/export.h"
#include "nbx/location.h"
#include "nbx/unknown.h"

/** Variables and functions by which the host adjusts the module. The function pointers are not synchronised:
    set them before the first database is opened. */
namespace nbx {

/** Prepares this thread for work in the engine. Cheap if it is prepared already; never throws. */
NBX_API void MironaInit3();

/** Suffix of the name of a backup's marker file, and the file's content. NUL-terminated UTF-8, never null;
    "duckdb_backup" unless the host points it to another text, which must live as long as the process. */
extern NBX_API const char* gmDuckDB_backup_sfx;

namespace mrsql {

/** Whether the host permits cancelling a local SQL call; true at first. Thread-safe. */
NBX_API bool IsLocalSqlCancellationAllowed();
/** Sets what `IsLocalSqlCancellationAllowed` returns, for hosts and tests. Thread-safe. */
NBX_API void SetLocalSqlCancellationAllowed(bool is_allowed);

/** Returns whether the current SQL call is local. `I_DuckDBDatabase::Interrupt` calls it, on the
    interrupting thread. Null, as at first, means that the host does not offer interruption: `Interrupt` then
    does nothing. */
extern NBX_API bool (*gpIsLocalSqlCall_PTR)();

/** Returns the location of one new backup inside `folder`; a null pointer makes the backup fail. Called with
    the engine lock held. The default creates a folder named by the time in UTC, as 2024-01-31T12-34-56Z, with
    a number appended if that name is taken. It throws `xException`. */
extern NBX_API smart_ptr<I_Location> (*gCreateBackupLocation)(const smart_ptr<I_Location>& folder);

/** Returns the folder for every backup of this server, or a null pointer if callers choose the folder, as the
    default does. The function pointer itself may be null, which means the same. Called with the engine lock
    held. */
extern NBX_API smart_ptr<I_Location> (*gServerBackupLocation)();

}  // namespace mrsql
}  // namespace nbx
