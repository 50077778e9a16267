#include "nbx/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "errors.h"
#include "native_path.h"

namespace nbx {
namespace {

constexpr mode_t kNewFileMode = 0666;

/** Opens the file; tries again if a signal interrupted the call. Other programs do not inherit the
    descriptor, because they would keep the file open. */
int OpenDescriptor(const std::string& path, int flags) {
    int descriptor = -1;
    do {
        // Without O_NONBLOCK opening a named pipe would wait until another program opens its other end.
        descriptor = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, kNewFileMode);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

/** Whether the range ends within what the system can address: `off_t` is signed, so a larger offset would
    become a negative one. */
bool IsOffsetValid(uint64_t offset, uint32_t count) noexcept {
    constexpr uint64_t kMax = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
    return offset <= kMax - count;
}

}  // namespace

File::~File() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

void* File::QueryInterface(uint32_t /*interface_id*/) {
    return nullptr;
}

void File::put_Location(smart_ptr<I_Location> location) {
    location_ = std::move(location);
}

void File::put_IsReadOnly(bool is_read_only) {
    is_read_only_ = is_read_only;
}

std::string File::get_NativePath() const {
    return location_ ? NativePath(location_->get_PathText()) : std::string();
}

void File::Fail(const char* operation, int error_number) const {
    ThrowFileError(get_NativePath(), operation, error_number);
}

void File::Open() {
    OpenWith(is_read_only_ ? O_RDONLY : O_RDWR, "open");
}

void File::Create() {
    OpenWith(O_RDWR | O_CREAT | O_TRUNC, "create");
}

void File::OpenWith(int flags, const char* operation) {
    // The object has at most one open file, so that no descriptor is lost.
    Close();
    const std::string path = get_NativePath();
    const int descriptor = OpenDescriptor(path, flags);
    if (descriptor < 0) {
        ThrowFileError(path, operation, errno);
    }
    // The system opens a folder for reading and fails only when it is read. Check the opened descriptor, not
    // the path, which may mean another file by now.
    struct stat status {};
    if (::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
        ::close(descriptor);
        ThrowFileError(path, operation, EISDIR);
    }
    descriptor_ = descriptor;
}

void File::Close() {
    if (descriptor_ >= 0) {
        const int descriptor = std::exchange(descriptor_, -1);
        // Linux releases the descriptor even if close fails, so it must not be closed again: another thread
        // may have received its number already.
        if (::close(descriptor) != 0 && errno != EINTR) {
            Fail("close", errno);
        }
    }
}

uint64_t File::get_Size() const {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) {
        Fail("read the size of", errno);
    }
    return static_cast<uint64_t>(status.st_size);
}

uint64_t File::get_Length() const {
    // The open file, even if its name means another one by now.
    if (descriptor_ >= 0) {
        return get_Size();
    }
    const std::string path = get_NativePath();
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        ThrowFileError(path, "read the size of", errno);
    }
    return static_cast<uint64_t>(status.st_size);
}

bool File::get_Exists() const {
    struct stat status {};
    return ::stat(get_NativePath().c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

uint32_t File::Read(void* buffer, uint64_t offset, uint32_t count) {
    if (!IsOffsetValid(offset, count)) {
        Fail("read", EOVERFLOW);
    }
    uint32_t done = 0;
    while (done < count) {
        const ssize_t step = ::pread(descriptor_, static_cast<char*>(buffer) + done, count - done,
                                     static_cast<off_t>(offset + done));
        // 0 is the end of the file; the system may also read less than requested before it.
        if (step == 0) {
            break;
        }
        if (step > 0) {
            done += static_cast<uint32_t>(step);
        } else if (errno != EINTR) {
            Fail("read", errno);
        }
    }
    return done;
}

uint32_t File::Write(const void* buffer, uint64_t offset, uint32_t count) {
    if (!IsOffsetValid(offset, count)) {
        Fail("write", EOVERFLOW);
    }
    uint32_t done = 0;
    while (done < count) {
        const ssize_t step = ::pwrite(descriptor_, static_cast<const char*>(buffer) + done, count - done,
                                      static_cast<off_t>(offset + done));
        if (step >= 0) {
            done += static_cast<uint32_t>(step);
        } else if (errno != EINTR) {
            // What was written before stays: the file has no transactions.
            Fail("write", errno);
        }
    }
    return done;
}

void File::ThrowOut() {
    const std::string path = get_NativePath();
    // The system would delete the name and keep the open file, so later writes would be lost silently.
    if (descriptor_ >= 0) {
        ThrowFileError(path, "delete the open file", EBUSY);
    }
    if (::unlink(path.c_str()) != 0) {
        ThrowFileError(path, "delete", errno);
    }
}

void File::Flush() {
    if (::fsync(descriptor_) != 0) {
        Fail("flush", errno);
    }
}

smart_ptr<I_File> CreateFile(smart_ptr<I_Location> location) {
    smart_ptr<I_File> file = MakeObject<FileWin>();
    file->put_Location(std::move(location));
    return file;
}

}  // namespace nbx
