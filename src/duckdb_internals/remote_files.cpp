#include "duckdb_internals/remote_files.h"

#include <duckdb/common/file_system.hpp>

namespace mduckdb {

bool IsRemotePath(const std::string& path) {
    return duckdb::FileSystem::IsRemoteFile(path);
}

}  // namespace mduckdb
