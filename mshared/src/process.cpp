// What exists once in a process: the engine lock, the provider of DuckDB, the host's hooks, the library's
// version.

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <string>

#include "errors.h"
#include "immortal.h"
#include "native_path.h"
#include "nbx/engine_lock.h"
#include "nbx/exception.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/registry.h"
#include "nbx/version.h"
#include "pool.h"

namespace nbx {
namespace {

// Needs no constructor or destructor at run time, so static objects of any module can lock it.
constinit Mutex gEngineMutex;

/** Never destroyed: at the end of the process the module that created the extension may be unloaded already,
    so releasing the extension then could call code that no longer exists. */
struct Registry {
    Mutex mutex;
    smart_ptr<mrsql::I_DuckDBExtension> extension NBX_GUARDED_BY(mutex);
};

// Relaxed accesses suffice: the flag is a setting and guards no other data.
std::atomic<bool> gIsLocalCancellationAllowed{true};

/** The time in UTC as a folder name. It has no colons, because some file systems do not allow them. */
std::string TimeName() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H-%M-%SZ", &parts);
    return std::string(text, length);
}

/** The default of `gCreateBackupLocation`. */
smart_ptr<I_Location> CreateTimedFolder(const smart_ptr<I_Location>& folder) {
    if (!folder) {
        throw xException(kLocationErrorCode, "No folder for the backup");
    }
    const std::string name = TimeName();
    for (unsigned attempt = 1;; ++attempt) {
        const std::string unique = attempt == 1 ? name : name + "-" + std::to_string(attempt);
        smart_ptr<I_Location> location = folder->MakeChild(String(unique.c_str()));
        const std::string path = NativePath(location->get_PathText());
        // The call that creates the folder also decides whether the name is free, so that two backups that
        // start in the same second never share a folder.
        if (::mkdir(path.c_str(), 0777) == 0) {
            return location;
        }
        if (errno != EEXIST) {
            ThrowFileError(path, "create the folder", errno);
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

// Called before SQL runs, so that a thread's first value needs no set-up.
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
    // The former extension is released here, outside the lock: its destructor is the module's code and may
    // call this library.
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
