#include "engines/surroundings.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>

#include "base/folders.h"

namespace mduckdb {

namespace {

constexpr int64_t kSecond = 1'000'000'000;
/** The coarsest steps of a file system's times. */
constexpr int64_t kSettlingTime = 2 * kSecond;

/** What DuckDB reads of the environment when it opens an engine. */
constexpr std::array<const char*, 5> kVariables{"HOME", "HTTP_PROXY", "SLURM_CPUS_ON_NODE",
                                                "SLURM_MEM_PER_CPU", "SLURM_MEM_PER_NODE"};

int64_t ToNs(const timespec& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

int64_t NowNs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return ToNs(now);
}

std::string ReadEnvironment() {
    std::string environment;
    for (const char* name : kVariables) {
        const char* value = std::getenv(name);
        // An unset variable differs from an empty one.
        environment.append(value != nullptr ? "=" : "").append(value != nullptr ? value : "").append(1, '\0');
    }
    return environment;
}

}  // namespace

FolderStamp::FolderStamp(const std::string& folder) {
    const OpenFolder open(opendir(folder.c_str()), &closedir);
    if (!open) {
        return;
    }
    Add(dirfd(open.get()), ".");
    VisitEntries(open, [this](int parent, const char* name) {
        if (name[0] != '.') {
            Add(parent, name);
        }
    });
    // Readers may get the files in any order.
    std::sort(entries_.begin(), entries_.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    is_settled_ = newest_ns_ < NowNs() - kSettlingTime;
}

void FolderStamp::Add(int folder, const char* name) {
    struct stat info {};
    Entry& entry = entries_.emplace_back();
    entry.name = name;
    if (fstatat(folder, name, &info, 0) == 0) {
        entry = {name, info.st_dev, info.st_ino, info.st_size, ToNs(info.st_mtim), ToNs(info.st_ctim)};
        newest_ns_ = std::max({newest_ns_, entry.modified_ns, entry.changed_ns});
    }
}

Surroundings::Surroundings(const std::string& secrets_folder)
    : secrets_folder_(secrets_folder), secrets_(secrets_folder), environment_(ReadEnvironment()) {}

bool Surroundings::AreUnchanged() const {
    return secrets_.get_IsSettled() && environment_ == ReadEnvironment() &&
           secrets_ == FolderStamp(secrets_folder_);
}

}  // namespace mduckdb
