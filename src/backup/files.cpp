#include "backup/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "backup/error.h"
#include "base/process.h"

namespace mduckdb {

namespace {

/** What `cp` uses too. With 1 MiB, the copy of a file of 2 GB took twice as long. */
constexpr std::size_t kBufferSize = 1U << 17U;
/** The alignment that direct access requires of the buffer and of the positions read. */
constexpr std::size_t kAlignment = 4096;
/** How much is passed to the disk at a time while the copy continues. */
constexpr uint64_t kWriteBackStep = uint64_t{8} << 20U;

struct FreeBuffer {
    void operator()(unsigned char* buffer) const noexcept { std::free(buffer); }
};
using Buffer = std::unique_ptr<unsigned char, FreeBuffer>;

Buffer MakeBuffer() {
    Buffer buffer(static_cast<unsigned char*>(std::aligned_alloc(kAlignment, kBufferSize)));
    if (!buffer) {
        throw std::bad_alloc();
    }
    return buffer;
}

/** Reads as much as there is, up to the size of the buffer. */
std::size_t ReadAt(int descriptor, unsigned char* buffer, uint64_t offset) {
    std::size_t got = 0;
    while (got < kBufferSize) {
        const ssize_t count =
            pread(descriptor, buffer + got, kBufferSize - got, static_cast<off_t>(offset + got));
        if (count < 0 && errno != EINTR) {
            throw BackupError(std::string("The database file cannot be read: ") + std::strerror(errno));
        }
        if (count == 0) {
            break;
        }
        got += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return got;
}

void WriteAt(int descriptor, const unsigned char* bytes, std::size_t count, uint64_t offset,
             const std::string& path) {
    for (std::size_t done = 0; done < count;) {
        const ssize_t written =
            pwrite(descriptor, bytes + done, count - done, static_cast<off_t>(offset + done));
        if (written < 0 && errno != EINTR) {
            ThrowFileError(path, "written");
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}

bool IsZero(const unsigned char* bytes, std::size_t count) {
    return count == 0 || (bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0);
}

/** Copies, and passes each buffer to `see`. */
template <class See>
void CopyAll(int source, uint64_t size, const std::string& target, const BackupStop& stop, See see) {
    const Descriptor out = OpenDescriptor(target, O_WRONLY);
    const Buffer buffer = MakeBuffer();
    uint64_t handed_over = 0;
    for (uint64_t at = 0; at < size;) {
        stop.Check();
        const std::size_t count =
            static_cast<std::size_t>(std::min<uint64_t>(ReadAt(source, buffer.get(), at), size - at));
        if (count == 0) {
            throw BackupError("The file is shorter than it was");
        }
        see(buffer.get(), count);
        if (!IsZero(buffer.get(), count)) {
            WriteAt(out.get(), buffer.get(), count, at, target);
        }
        at += count;
        if (at - handed_over >= kWriteBackStep) {
            // Only a hint: the copy is synchronised at the end.
            sync_file_range(out.get(), static_cast<off_t>(handed_over), static_cast<off_t>(at - handed_over),
                            SYNC_FILE_RANGE_WRITE);
            handed_over = at;
        }
    }
    if (ftruncate(out.get(), static_cast<off_t>(size)) != 0) {
        ThrowFileError(target, "written");
    }
    if (fdatasync(out.get()) != 0) {
        ThrowFileError(target, "synchronised");
    }
}

bool IsReadable(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_WRONLY && (flags & O_PATH) == 0;
}

}  // namespace

Descriptor OpenDescriptor(const std::string& path, int flags) {
    const int number = open(path.c_str(), flags | O_CLOEXEC, 0666);
    if (number < 0) {
        ThrowFileError(path, "opened");
    }
    return Descriptor(number);
}

int FindOpenDescriptor(const std::string& path) {
    struct stat wanted {};
    if (stat(path.c_str(), &wanted) != 0) {
        return -1;
    }
    int found = -1;
    for (const int descriptor : ListDescriptors()) {
        struct stat info {};
        if (fstat(descriptor, &info) == 0 && info.st_dev == wanted.st_dev && info.st_ino == wanted.st_ino &&
            IsReadable(descriptor)) {
            // The oldest one is the engine's own: a later one may belong to code that reads the file briefly.
            found = found < 0 ? descriptor : std::min(found, descriptor);
        }
    }
    return found;
}

uint64_t FileSize(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

void CopyBytes(int source, uint64_t size, const std::string& target, const BackupStop& stop) {
    CopyAll(source, size, target, stop, [](const unsigned char*, std::size_t) {});
}

std::string CopyBytesWithSum(int source, uint64_t size, const std::string& target, const BackupStop& stop) {
    Sha256 sum;
    CopyAll(source, size, target, stop,
            [&sum](const unsigned char* bytes, std::size_t count) { sum.Add(bytes, count); });
    return sum.Finish();
}

std::string FileSum(const std::string& path, const BackupStop& stop) {
    const Descriptor in = OpenDescriptor(path, O_RDONLY);
    const Buffer buffer = MakeBuffer();
    Sha256 sum;
    uint64_t at = 0;
    while (const std::size_t count = ReadAt(in.get(), buffer.get(), at)) {
        stop.Check();
        sum.Add(buffer.get(), count);
        at += count;
    }
    return sum.Finish();
}

void SyncToDisk(const std::string& path) {
    const Descriptor file = OpenDescriptor(path, O_RDONLY);
    if (fsync(file.get()) != 0) {
        ThrowFileError(path, "synchronised");
    }
}

void WriteWhole(const std::string& path, const std::string& content) {
    const Descriptor file = OpenDescriptor(path, O_WRONLY | O_CREAT | O_TRUNC);
    WriteAt(file.get(), reinterpret_cast<const unsigned char*>(content.data()), content.size(), 0, path);
    if (fsync(file.get()) != 0) {
        ThrowFileError(path, "synchronised");
    }
}

std::string ReadWhole(const std::string& path) {
    const Descriptor file = OpenDescriptor(path, O_RDONLY);
    const Buffer buffer = MakeBuffer();
    std::string content;
    while (const std::size_t count = ReadAt(file.get(), buffer.get(), content.size())) {
        content.append(reinterpret_cast<const char*>(buffer.get()), count);
    }
    return content;
}

void LimitRights(const std::string& path, int model) {
    struct stat of_model {};
    struct stat own {};
    if (fstat(model, &of_model) != 0 || stat(path.c_str(), &own) != 0 ||
        chmod(path.c_str(), own.st_mode & of_model.st_mode & 0777U) != 0) {
        ThrowFileError(path, "given the access rights of the database");
    }
}

Descriptor LockFolder(const std::string& folder, const BackupStop& stop) {
    constexpr std::chrono::milliseconds kPause{5};
    Descriptor opened = OpenDescriptor(folder, O_RDONLY | O_DIRECTORY);
    while (flock(opened.get(), LOCK_EX | LOCK_NB) != 0 && (errno == EWOULDBLOCK || errno == EINTR)) {
        stop.Check();
        std::this_thread::sleep_for(kPause);
    }
    return opened;
}

void RenameToFreeName(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return;
    }
    // The file system does not support the flag.
    if (errno == EINVAL || errno == ENOSYS) {
        if (link(from.c_str(), to.c_str()) == 0) {
            // It has its new name; the old one goes with its folder otherwise.
            unlink(from.c_str());
            return;
        }
    }
    ThrowFileError(to, "made");
}

void ThrowFileError(const std::string& path, const char* operated) {
    throw BackupError(path + " cannot be " + operated + ": " + std::strerror(errno));
}

}  // namespace mduckdb
