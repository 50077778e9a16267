#include "nbx/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "errors.h"
#include "unicode.h"

namespace nbx {
namespace {

constexpr mode_t kNewFileMode = 0666;

/** Opens, also when a signal interrupts the system. */
int OpenDescriptor(const std::string& path, int flags) {
    int descriptor = -1;
    do {
        // A named pipe must give an error, not wait for somebody at its other end.
        descriptor = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, kNewFileMode);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

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
    return location_ ? Utf16ToUtf8(location_->get_PathText().get_View()) : std::string();
}

void File::Fail(const char* operation, int error_number) const {
    ThrowFileError(get_NativePath(), operation, error_number);
}

void File::Open() {
    OpenWith(is_read_only_ ? O_RDONLY : O_RDWR, "open");
}

void File::Create() {
    OpenWith(O_RDWR | O_CREAT | O_TRUNC, "make");
}

void File::OpenWith(int flags, const char* operation) {
    Close();
    const std::string path = get_NativePath();
    const int descriptor = OpenDescriptor(path, flags);
    if (descriptor < 0) {
        ThrowFileError(path, operation, errno);
    }
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
        // Even when it fails the descriptor is gone, so it is never closed twice.
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
            Fail("write", errno);
        }
    }
    return done;
}

void File::ThrowOut() {
    const std::string path = get_NativePath();
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
