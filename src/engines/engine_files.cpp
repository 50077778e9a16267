#include "engines/engine_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

namespace mduckdb {

namespace {

long long ToNanoseconds(const timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

/** The order of closing: the writer may still fold its log into the file, which needs the lock; a dead
    engine writes nothing when it is closed. */
int ClosingRank(EngineFiles::Access access) {
    switch (access) {
        case EngineFiles::Access::writing:
            return 0;
        case EngineFiles::Access::reading:
            return 1;
        case EngineFiles::Access::dead:
            break;
    }
    return 2;
}

}  // namespace

bool IsEngineAlive(duckdb_database engine) {
    duckdb_connection connection = nullptr;
    if (duckdb_connect(engine, &connection) != DuckDBSuccess) {
        return false;
    }
    const bool is_alive = duckdb_query(connection, "SELECT 1", nullptr) == DuckDBSuccess;
    duckdb_disconnect(&connection);
    return is_alive;
}

EngineFiles& EngineFiles::Get() {
    // Never destroyed: engines may be given up while other static objects are being destroyed.
    static auto* files = new EngineFiles;
    return *files;
}

std::size_t& EngineFiles::File::Count(Access access) {
    switch (access) {
        case Access::reading:
            return readers;
        case Access::writing:
            return writers;
        case Access::dead:
            break;
    }
    return dead;
}

void EngineFiles::File::OutdateReaders() {
    is_stale = true;
    for (Idle& each : idle) {
        each.is_current = false;
    }
}

bool EngineFiles::TryHold(const std::string& path, Access access) {
    const std::scoped_lock lock(mutex_);
    const std::string canonical = Resolve(path);
    File& file = files_[canonical];
    if (file.writers > 0) {
        return false;
    }
    if (access == Access::writing) {
        file.OutdateReaders();
    }
    AddHold(path, canonical, file, access);
    return true;
}

void EngineFiles::AddHold(const std::string& path, const std::string& canonical, File& file, Access access) {
    if (access == Access::reading) {
        const Fingerprint now = ReadFingerprint(canonical);
        if (file.fingerprint != now) {
            file.OutdateReaders();
        }
        file.is_stale = file.is_stale && file.readers > 0;
        file.fingerprint = now;
    }
    // Room for every engine that may be given up, so that giving up cannot fail.
    file.idle.reserve(file.idle.size() + file.readers + file.writers + file.dead + 1);
    Name& name = names_[path];
    name.canonical = canonical;
    ++name.holds;
    ++file.Count(access);
}

void EngineFiles::CancelHold(const std::string& path, Access access) noexcept {
    CloseAll(Leave(path, access, nullptr));
}

void EngineFiles::Retire(const std::string& path, Access access) noexcept {
    const std::scoped_lock lock(mutex_);
    const auto name = names_.find(path);
    if (name != names_.end()) {
        File& file = files_.find(name->second.canonical)->second;
        --file.Count(access);
        ++file.dead;
    }
}

void EngineFiles::GiveUp(const std::string& path, Access access, std::string configuration,
                         duckdb_database engine) noexcept {
    Idle given_up{access, true, std::move(configuration), engine};
    CloseAll(Leave(path, access, &given_up));
}

void EngineFiles::CloseAll(std::vector<Idle> engines) noexcept {
    std::sort(engines.begin(), engines.end(),
              [](const Idle& a, const Idle& b) { return ClosingRank(a.access) < ClosingRank(b.access); });
    for (Idle& idle : engines) {
        duckdb_close(&idle.engine);
    }
}

std::vector<EngineFiles::Idle> EngineFiles::Leave(const std::string& path, Access access,
                                                  Idle* given_up) noexcept {
    const std::scoped_lock lock(mutex_);
    const auto name = names_.find(path);
    const auto found = files_.find(name->second.canonical);
    File& file = found->second;
    if (given_up != nullptr) {
        given_up->is_current = access == Access::writing || (access == Access::reading && !file.is_stale);
        file.idle.push_back(std::move(*given_up));
    }
    --file.Count(access);
    if (--name->second.holds == 0) {
        names_.erase(name);
    }
    std::vector<Idle> closing;
    if (!file.IsUsed()) {
        closing = std::move(file.idle);
        files_.erase(found);
    }
    return closing;
}

duckdb_database EngineFiles::Reuse(const std::string& path, const std::string& canonical, File& file,
                                   const Idle& idle) {
    const duckdb_database engine = idle.engine;
    const std::ptrdiff_t index = &idle - file.idle.data();
    AddHold(path, canonical, file, idle.access);
    file.idle.erase(file.idle.begin() + index);
    return engine;
}

duckdb_database EngineFiles::TakeIdleReader(const std::string& path, const std::string& configuration) {
    const std::scoped_lock lock(mutex_);
    const std::string canonical = Resolve(path);
    const auto found = files_.find(canonical);
    if (found == files_.end() || found->second.writers > 0 || found->second.is_stale) {
        return nullptr;
    }
    File& file = found->second;
    if (file.fingerprint != ReadFingerprint(canonical)) {
        return nullptr;
    }
    for (Idle& idle : file.idle) {
        if (idle.access != Access::reading || !idle.is_current || idle.configuration != configuration) {
            continue;
        }
        if (IsEngineAlive(idle.engine)) {
            return Reuse(path, canonical, file, idle);
        }
        idle.is_current = false;
    }
    return nullptr;
}

duckdb_database EngineFiles::TakeIdleWriter(const std::string& path) {
    const std::scoped_lock lock(mutex_);
    const std::string canonical = Resolve(path);
    const auto found = files_.find(canonical);
    if (found == files_.end() || found->second.writers > 0) {
        return nullptr;
    }
    File& file = found->second;
    for (Idle& idle : file.idle) {
        if (idle.access != Access::writing) {
            continue;
        }
        if (IsEngineAlive(idle.engine)) {
            file.OutdateReaders();
            return Reuse(path, canonical, file, idle);
        }
        idle.access = Access::dead;
    }
    return nullptr;
}

void EngineFiles::CloseIdle(const std::string& path) {
    std::vector<Idle> closing;
    {
        const std::scoped_lock lock(mutex_);
        const auto found = files_.find(Resolve(path));
        if (found == files_.end()) {
            return;
        }
        File& file = found->second;
        closing.reserve(file.readers + file.writers + file.dead);
        closing.swap(file.idle);
        file.OutdateReaders();
    }
    CloseAll(std::move(closing));
}

bool EngineFiles::IsHeldForWriting(const std::string& path) {
    const std::scoped_lock lock(mutex_);
    const auto found = files_.find(Resolve(path));
    return found != files_.end() && found->second.writers > 0;
}

bool EngineFiles::IsInUse(const std::string& path) {
    const std::scoped_lock lock(mutex_);
    return files_.count(Resolve(path)) > 0;
}

std::size_t EngineFiles::get_IdleCount() {
    const std::scoped_lock lock(mutex_);
    std::size_t count = 0;
    for (const auto& [path, file] : files_) {
        count += file.idle.size();
    }
    return count;
}

std::string EngineFiles::Resolve(const std::string& path) {
    const auto name = names_.find(path);
    return name != names_.end() ? name->second.canonical : Canonical(path);
}

std::string EngineFiles::Canonical(const std::string& path) {
    namespace fs = std::filesystem;
    constexpr int kMostLinks = 40;
    std::error_code error;
    fs::path target(path);
    // A link to a file that is not there yet names the file that opening it makes.
    for (int links = 0; links < kMostLinks && fs::is_symlink(fs::symlink_status(target, error)); ++links) {
        const fs::path next = fs::read_symlink(target, error);
        if (error) {
            break;
        }
        target = target.parent_path() / next;
    }
    const fs::path canonical = fs::weakly_canonical(target, error);
    return error ? path : canonical.string();
}

EngineFiles::Fingerprint EngineFiles::ReadFingerprint(const std::string& path) {
    Fingerprint result;
    struct stat info {};
    if (stat(path.c_str(), &info) == 0) {
        result.device = static_cast<long long>(info.st_dev);
        result.inode = static_cast<long long>(info.st_ino);
        result.size = info.st_size;
        result.changed = ToNanoseconds(info.st_mtim);
    }
    if (stat((path + ".wal").c_str(), &info) == 0) {
        result.log_size = info.st_size;
        result.log_changed = ToNanoseconds(info.st_mtim);
    }
    return result;
}

}  // namespace mduckdb
