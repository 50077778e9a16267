#include "nbx/lock_holder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <memory>

namespace nbx {
namespace {

using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

/** Calls `visit` with each name in the folder that is a number until it returns true. */
template <class Visit>
bool VisitNumbers(const std::string& path, Visit visit) {
    const Folder folder(opendir(path.c_str()), &closedir);
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0 && visit(entry->d_name)) {
            return true;
        }
    }
    return false;
}

std::string Describe(const std::string& process) {
    std::array<char, PATH_MAX> program{};
    const ssize_t length = readlink(("/proc/" + process + "/exe").c_str(), program.data(), program.size());
    if (length <= 0) {
        return "Process " + process;
    }
    return std::string(program.data(), static_cast<std::size_t>(length)) + " (process " + process + ")";
}

/** Whether a lock was taken through this descriptor of a process. */
bool HasLock(const std::string& process, const std::string& descriptor) {
    std::ifstream facts("/proc/" + process + "/fdinfo/" + descriptor);
    for (std::string line; std::getline(facts, line);) {
        if (line.starts_with("lock:")) {
            return true;
        }
    }
    return false;
}

/** A lock of an open file description belongs to no process, so the system reports no process number. It does
    report the descriptors through which the locks of a file were taken. */
std::string FindOwner(const struct stat& file) {
    std::string owner;
    VisitNumbers("/proc", [&](const std::string& process) {
        const std::string folder = "/proc/" + process + "/fd";
        return VisitNumbers(folder, [&](const std::string& descriptor) {
            struct stat other {};
            const bool is_owner = stat((folder + "/" + descriptor).c_str(), &other) == 0 &&
                                  other.st_dev == file.st_dev && other.st_ino == file.st_ino &&
                                  HasLock(process, descriptor);
            owner = is_owner ? process : "";
            return is_owner;
        });
    });
    return owner;
}

}  // namespace

std::string DescribeLockHolder(int descriptor) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    struct stat file {};
    if (fcntl(descriptor, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK ||
        fstat(descriptor, &file) != 0) {
        return {};
    }
    const std::string owner = lock.l_pid > 0 ? std::to_string(lock.l_pid) : FindOwner(file);
    return owner.empty() ? "Another process, which the system does not name," : Describe(owner);
}

}  // namespace nbx
