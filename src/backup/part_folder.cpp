#include "backup/part_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "backup/error.h"

namespace mduckdb {

namespace {

namespace fs = std::filesystem;

constexpr const char* kInfix = ".part-";
/** No database in the folder has this name: theirs come from files that have one. */
constexpr const char* kInUseName = ".in-use";

/** Deletes the folder unless a living process works on it. */
void DeleteIfLeftBehind(const fs::path& folder) noexcept {
    try {
        const Descriptor in_use((folder / kInUseName).string(), O_RDONLY);
        if (flock(in_use.get(), LOCK_EX | LOCK_NB) == 0) {
            std::error_code ignored;
            fs::remove_all(folder, ignored);
        }
    } catch (const BackupError&) {  // Without its mark, it may just be being made: it stays.
    }
}

void DeleteLeftovers(const fs::path& file) noexcept {
    try {
        const std::string start = file.filename().string() + kInfix;
        for (const auto& entry : fs::directory_iterator(file.parent_path())) {
            if (entry.path().filename().string().starts_with(start)) {
                DeleteIfLeftBehind(entry.path());
            }
        }
    } catch (const std::exception&) {  // A folder that cannot be listed shows when a file is made in it.
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
        // A file system without such locks: what is left behind there stays.
        flock(in_use_->get(), LOCK_EX | LOCK_NB);
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
        throw;
    }
}

PartFolder::~PartFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

}  // namespace mduckdb
