#include "backup/part_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string_view>

#include "backup/error.h"
#include "base/folders.h"

namespace mduckdb {

namespace {

namespace fs = std::filesystem;

constexpr const char* kInfix = ".part-";
/** As `mkdtemp` takes it. */
constexpr std::string_view kRandom = "XXXXXX";
/** Marks a folder as this module's, from before its first other file until after its last. The database in
    the folder has the name of its target instead. */
constexpr const char* kInUseName = ".in-use";

/** How long a folder may have no mark: its making takes far less, unless the process was stopped in between.
 */
constexpr std::time_t kUnmarkedSeconds = 60;

/** Whether it has been without a mark for too long to be in the making. */
bool IsUnmarked(const std::string& folder, const std::string& mark) noexcept {
    struct stat info {};
    if (lstat(mark.c_str(), &info) == 0 || errno != ENOENT) {
        return false;
    }
    return lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
           info.st_mtime < std::time(nullptr) - kUnmarkedSeconds;
}

/** Deletes the folder unless a living process works on it, or it may be somebody else's. */
void DeleteIfLeftBehind(const std::string& folder) {
    const std::string mark = folder + "/" + kInUseName;
    if (IsUnmarked(folder, mark)) {
        // A process was killed before it had marked the folder; only an empty one is its.
        rmdir(folder.c_str());
        return;
    }
    const Descriptor in_use(open(mark.c_str(), O_RDONLY | O_CLOEXEC));
    if (in_use.get() >= 0 && flock(in_use.get(), LOCK_EX | LOCK_NB) == 0) {
        DeleteFolder(folder, kInUseName);
    }
}

void DeleteLeftovers(const fs::path& file) noexcept {
    try {
        const std::string start = file.filename().string() + kInfix;
        const std::string parent = file.parent_path().string();
        VisitEntries(OpenFolder(opendir(parent.c_str()), &closedir), [&](int, const char* name) {
            const std::string_view entry = name;
            if (entry.starts_with(start) && entry.size() == start.size() + kRandom.size()) {
                DeleteIfLeftBehind(parent + "/" + name);
            }
        });
    } catch (const std::exception&) {  // A folder that cannot be listed fails later, at its first file.
    }
}

}  // namespace

PartFolder::PartFolder(const std::string& file) : path_(file + kInfix + std::string(kRandom)) {
    DeleteLeftovers(file);
    if (mkdtemp(path_.data()) == nullptr) {
        ThrowFileError(file, "made");
    }
    try {
        in_use_ = OpenDescriptor(path_ + "/" + kInUseName, O_RDWR | O_CREAT);
        // The file system has no such locks, so leftovers stay.
        flock(in_use_.get(), LOCK_EX | LOCK_NB);
    } catch (...) {
        DeleteFolder(path_, kInUseName);
        throw;
    }
}

PartFolder::~PartFolder() {
    DeleteFolder(path_, kInUseName);
}

}  // namespace mduckdb
