#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "engines/file_system.h"

namespace mduckdb {

namespace {

/** The program of a process and its number. */
std::string DescribeProcess(pid_t process) {
    if (process <= 0) {
        return "Another process";
    }
    const std::string number = std::to_string(process);
    std::array<char, PATH_MAX> program{};
    const ssize_t length = readlink(("/proc/" + number + "/exe").c_str(), program.data(), program.size());
    if (length <= 0) {
        return "Process " + number;
    }
    return std::string(program.data(), static_cast<std::size_t>(length)) + " (process " + number + ")";
}

struct flock WholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

/** Who keeps the lock from us. */
std::string DescribeHolder(int descriptor) {
    struct flock lock = WholeFile();
    const bool is_told = fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    return DescribeProcess(is_told ? lock.l_pid : 0) + " has the file open.";
}

}  // namespace

FileLock::~FileLock() {
    Release();
}

void FileLock::Release() noexcept {
    if (descriptor_ >= 0) {
        close(std::exchange(descriptor_, -1));
    }
}

bool FileLock::IsAt(const FileLook& file) const {
    struct stat locked {};
    struct stat there {};
    return fstat(descriptor_, &locked) == 0 && stat(file.path.c_str(), &there) == 0 &&
           locked.st_dev == there.st_dev && locked.st_ino == there.st_ino && locked.st_dev == file.device &&
           locked.st_ino == file.inode;
}

bool FileLock::Take(const FileLook& file, std::string& reason) {
    Release();
    // Without waiting for somebody at the other end of a named pipe.
    descriptor_ = open(file.path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (descriptor_ < 0) {
        reason = "The file cannot be opened: " + std::string(std::strerror(errno)) + ".";
        return false;
    }
    content_ = ReadContent(descriptor_);
    struct flock lock = WholeFile();
    if (content_ != FileContent::database && content_ != FileContent::empty) {
        reason = "The file is not a DuckDB database.";
    } else if (fcntl(descriptor_, F_OFD_SETLK, &lock) != 0) {
        reason = errno == EACCES || errno == EAGAIN
                     ? DescribeHolder(descriptor_)
                     : "The file cannot be locked: " + std::string(std::strerror(errno)) + ".";
    } else if (!IsAt(file)) {
        reason = "Another file has taken its place.";
    } else {
        return true;
    }
    Release();
    return false;
}

}  // namespace mduckdb
