#include "backup/part_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "backup/error.h"
#include "base/folders.h"

namespace mduckdb {

namespace {

namespace fs = std::filesystem;

constexpr const char* kInfix = ".part-";
/** Marks a folder in use. The database in the folder has the name of its target instead. */
constexpr const char* kInUseName = ".in-use";

/** Deletes the folder unless a living process works on it. */
void DeleteIfLeftBehind(const std::string& folder) noexcept {
    try {
        const Descriptor in_use(folder + "/" + kInUseName, O_RDONLY);
        if (flock(in_use.get(), LOCK_EX | LOCK_NB) == 0) {
            DeleteFolder(folder);
        }
    } catch (
        const std::exception&) {  // Without its mark it may be in the middle of its creation, so it stays.
    }
}

void DeleteLeftovers(const fs::path& file) noexcept {
    try {
        const std::string start = file.filename().string() + kInfix;
        const std::string parent = file.parent_path().string();
        VisitEntries(OpenFolder(opendir(parent.c_str()), &closedir), [&](int, const char* name) {
            if (std::string_view(name).starts_with(start)) {
                DeleteIfLeftBehind(parent + "/" + name);
            }
        });
    } catch (const std::exception&) {  // A folder that cannot be listed fails later, at its first file.
    }
}

}  // namespace

PartFolder::PartFolder(const std::string& file) : path_(file + kInfix + "XXXXXX") {
    DeleteLeftovers(file);
    if (mkdtemp(path_.data()) == nullptr) {
        ThrowFileError(file, "made");
    }
    try {
        in_use_ = std::make_unique<Descriptor>(path_ + "/" + kInUseName, O_RDWR | O_CREAT);
        // The file system has no such locks, so leftovers stay.
        flock(in_use_->get(), LOCK_EX | LOCK_NB);
    } catch (...) {
        DeleteFolder(path_);
        throw;
    }
}

PartFolder::~PartFolder() {
    DeleteFolder(path_);
}

}  // namespace mduckdb
