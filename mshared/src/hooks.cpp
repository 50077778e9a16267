#include "nbx/hooks.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <string>

#include "nbx/exception.h"
#include "pool_cache.h"
#include "system_error.h"
#include "unicode.h"

namespace nbx {
namespace {

std::atomic<bool> gIsLocalCancellationAllowed{true};

/** Colons are left out, so that the name serves on every file system. */
std::string TimeName() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H-%M-%SZ", &parts);
    return std::string(text, length);
}

smart_ptr<I_Location> CreateTimedFolder(const smart_ptr<I_Location>& folder) {
    if (!folder) {
        throw xException(kLocationErrorCode, "No folder for the backup");
    }
    const std::string name = TimeName();
    for (unsigned attempt = 1;; ++attempt) {
        const std::string unique = attempt == 1 ? name : name + "-" + std::to_string(attempt);
        smart_ptr<I_Location> location = folder->MakeChild(String(unique.c_str()));
        const std::string path = Utf16ToUtf8(location->get_PathText().get_View());
        // The making itself tells whether the name is taken, so that two backups never share a folder.
        if (::mkdir(path.c_str(), 0777) == 0) {
            return location;
        }
        if (errno != EEXIST) {
            ThrowFileError(path, "make the folder", errno);
        }
    }
}

smart_ptr<I_Location> NoServerFolder() {
    return nullptr;
}

}  // namespace

const char* gmDuckDB_backup_sfx = "duckdb_backup";

void MironaInit3() {
    pool::PrepareThread();
}

namespace mrsql {

bool IsLocalSqlCancellationAllowed() {
    return gIsLocalCancellationAllowed.load(std::memory_order_relaxed);
}

void SetLocalSqlCancellationAllowed(bool is_allowed) {
    gIsLocalCancellationAllowed.store(is_allowed, std::memory_order_relaxed);
}

bool (*gpIsLocalSqlCall_PTR)() = nullptr;
smart_ptr<I_Location> (*gCreateBackupLocation)(const smart_ptr<I_Location>& folder) = CreateTimedFolder;
smart_ptr<I_Location> (*gServerBackupLocation)() = NoServerFolder;

}  // namespace mrsql
}  // namespace nbx
