#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "engines/file_system.h"
#include "nbx/lock_holder.h"

namespace mduckdb {

namespace {

struct flock WholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

/** The process that holds the lock. */
std::string DescribeHolder(int descriptor) {
    const std::string holder = nbx::DescribeLockHolder(descriptor);
    return (holder.empty() ? "Another process" : holder) + " has the file open.";
}

}  // namespace

std::string NameLockHolder(std::string text, const FileLook& file) {
    for (const std::string_view unknown : {"held in PID -1", "held in PID 0"}) {
        const std::size_t at = text.find(unknown);
        const Descriptor opened(at != text.npos ? open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)
                                                : -1);
        if (opened.get() >= 0) {
            const std::string holder = nbx::DescribeLockHolder(opened.get());
            if (!holder.empty()) {
                text.replace(at, unknown.size(), "held in " + holder);
            }
            break;
        }
    }
    return text;
}

bool FileLock::IsAt(const FileLook& file) const {
    struct stat locked {};
    struct stat there {};
    return fstat(descriptor_.get(), &locked) == 0 && stat(file.path.c_str(), &there) == 0 &&
           locked.st_dev == there.st_dev && locked.st_ino == there.st_ino && locked.st_dev == file.device &&
           locked.st_ino == file.inode;
}

bool FileLock::Take(const FileLook& file, std::string& reason) {
    Release();
    try {
        if (TryTake(file, reason)) {
            return true;
        }
    } catch (...) {
        Release();
        throw;
    }
    Release();
    return false;
}

bool FileLock::TryTake(const FileLook& file, std::string& reason) {
    // Opening a named pipe must not wait for a process at its other end.
    descriptor_ = Descriptor(open(file.path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (descriptor_.get() < 0) {
        reason = "The file cannot be opened: " + std::string(std::strerror(errno)) + ".";
        return false;
    }
    content_ = ReadContent(descriptor_.get());
    struct flock lock = WholeFile();
    if (content_ != FileContent::database && content_ != FileContent::empty) {
        reason = "The file is not a DuckDB database.";
    } else if (fcntl(descriptor_.get(), F_OFD_SETLK, &lock) != 0) {
        reason = errno == EACCES || errno == EAGAIN
                     ? DescribeHolder(descriptor_.get())
                     : "The file cannot be locked: " + std::string(std::strerror(errno)) + ".";
    } else if (!IsAt(file)) {
        reason = "Another file has taken its place.";
    } else {
        return true;
    }
    return false;
}

}  // namespace mduckdb
