// What a process has once: the engine lock, the provider of DuckDB, the host's hooks, the library's version.

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <string>

#include "errors.h"
#include "immortal.h"
#include "nbx/engine_lock.h"
#include "nbx/exception.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/registry.h"
#include "nbx/version.h"
#include "pool.h"
#include "unicode.h"

namespace nbx {
namespace {

// Needs no constructor and no destructor at run time, so it serves before and after everything else.
constinit Mutex gEngineMutex;

/** Immortal: at the end of the process the module that made the extension may be gone already. */
struct Registry {
    Mutex mutex;
    smart_ptr<mrsql::I_DuckDBExtension> extension NBX_GUARDED_BY(mutex);
};

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

constinit thread_local bool detail::gThreadFlags[2]{};

Mutex& GetGlobalEngineLock() noexcept {
    return gEngineMutex;
}

const char* get_LibraryVersion() noexcept {
    return MSHARED_VERSION;
}

const char* gmDuckDB_backup_sfx = "duckdb_backup";

void MironaInit3() {
    pool::PrepareThread();
}

namespace mrsql {

void SetDuckDBExtension(smart_ptr<I_DuckDBExtension> extension) {
    Registry& registry = GetImmortal<Registry>();
    {
        const MutexLock lock(registry.mutex);
        registry.extension.swap(extension);
    }
    // The former extension goes here, outside of the lock, since its destructor is the module's code.
}

smart_ptr<I_DuckDBExtension> GetDuckDBExtension() {
    Registry& registry = GetImmortal<Registry>();
    const MutexLock lock(registry.mutex);
    return registry.extension;
}

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
