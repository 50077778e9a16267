#pragma once

#include "nbx/export.h"
#include "nbx/location.h"
#include "nbx/unknown.h"

namespace nbx {

/** Prepares this thread for work in the engine; may be called often. */
NBX_API void MironaInit3();

/** Suffix of a backup's marker file, also its content. NUL-terminated; the host may point it elsewhere. */
extern NBX_API const char* gmDuckDB_backup_sfx;

namespace mrsql {

/** Whether the host lets a local SQL call be cancelled. */
NBX_API bool IsLocalSqlCancellationAllowed();
/** What `IsLocalSqlCancellationAllowed` answers; true at start. For hosts and tests. */
NBX_API void SetLocalSqlCancellationAllowed(bool is_allowed);

/** Tells whether the call that runs now is a local one. Null in a host that does not offer
    interruption; set before the first database is opened. */
extern NBX_API bool (*gpIsLocalSqlCall_PTR)();

/** Makes the location of one new backup inside the folder. At start it gives a folder named by the
    time of the backup, which it makes. Set before the first backup. */
extern NBX_API smart_ptr<I_Location> (*gCreateBackupLocation)(const smart_ptr<I_Location>& folder);

/** The folder for every backup of this server, or a null pointer when callers choose. */
extern NBX_API smart_ptr<I_Location> (*gServerBackupLocation)();

}  // namespace mrsql
}  // namespace nbx
