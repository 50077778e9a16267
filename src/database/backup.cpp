#include "database/database.h"

namespace mduckdb {

void DuckDBDatabase::Backup(nbx::smart_ptr<nbx::I_Location> /*folder*/) {
    const EngineLockScope lock;
    RequireConnection();
    ThrowError("Backup is not available yet");
}

}  // namespace mduckdb
