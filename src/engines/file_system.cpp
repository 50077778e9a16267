#include "engines/file_system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>
#include <vector>

#include "base/process.h"

namespace mduckdb {

namespace {

int64_t ToNanoseconds(const timespec& time) {
    return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

/** The folder part of a path, to which a name can be appended. */
std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

/** Follows the links at the end of the path. The system resolves the folder, since it knows what ".." after a
    link means. */
std::string FollowLinks(std::string path) {
    // As many as Linux follows; a longer chain cannot be opened either.
    constexpr int kMostLinks = 40;
    for (int i = 0; i < kMostLinks; ++i) {
        std::array<char, PATH_MAX> target{};
        const ssize_t length = readlink(path.c_str(), target.data(), target.size());
        if (length < 0) {
            break;
        }
        const std::string next(target.data(), static_cast<std::size_t>(length));
        path = next.starts_with('/') ? next : FolderOf(path).append(next);
    }
    return path;
}

}  // namespace

std::string ResolveParents(const std::string& path) {
    const std::size_t end = path.rfind('/', path.find_first_of("*?["));
    const std::string folder = end == path.npos ? "" : path.substr(0, end + 1);
    if (("/" + folder).find("/../") == path.npos || path.starts_with('~') || path.find("://") != path.npos ||
        path.find('\0') != path.npos) {
        return path;
    }
    std::array<char, PATH_MAX> real{};
    if (realpath(folder.c_str(), real.data()) == nullptr) {
        return {};
    }
    const std::string_view separator = std::string_view(real.data()) == "/" ? "" : "/";
    return std::string(real.data()).append(separator).append(path, end + 1);
}

const FileSystem& FileSystem::Get() {
    static const FileSystem system;
    return system;
}

FileLook FileSystem::Look(const std::string& path) const {
    FileLook look;
    look.path = FollowLinks(path);
    look.name = look.path.substr(look.path.rfind('/') + 1);
    look.exists = FileSystem::Identify(path.c_str(), look.device, look.inode);
    const std::string folder = FolderOf(look.path);
    if (!FileSystem::Identify(folder.empty() ? "." : folder.c_str(), look.folder_device, look.folder_inode)) {
        // Two files on a network may have the same last part.
        look.name = look.path;
    }
    return look;
}

bool FileSystem::Identify(const char* path, uint64_t& device, uint64_t& inode) const noexcept {
    struct stat info {};
    const bool exists = stat(path, &info) == 0;
    if (exists) {
        device = info.st_dev;
        inode = info.st_ino;
    }
    return exists;
}

FileStamp FileSystem::ReadStamp(const std::string& path) const {
    FileStamp stamp{-1, -1, -1, -1};
    struct stat info {};
    if (stat(path.c_str(), &info) == 0) {
        stamp[0] = info.st_size;
        stamp[1] = ToNanoseconds(info.st_mtim);
    }
    if (stat((path + kLogEndings.front()).c_str(), &info) == 0) {
        stamp[2] = info.st_size;
        stamp[3] = ToNanoseconds(info.st_mtim);
    }
    return stamp;
}

bool FileSystem::IsDatabaseOpenHere(const FileLook& file) const {
    return file.exists && ReadContentWithoutOpening(file) == FileContent::database;
}

bool HasLog(const std::string& path) {
    struct stat info {};
    for (const char* ending : kLogEndings) {
        if (lstat((path + ending).c_str(), &info) == 0) {
            return true;
        }
    }
    return false;
}

LogNames::LogNames(const std::string& path) {
    for (std::size_t i = 0; i < kLogEndings.size(); ++i) {
        names_[i] = path + kLogEndings[i];
    }
}

int LogNames::Delete() const noexcept {
    int error = 0;
    for (const std::string& name : names_) {
        if (unlink(name.c_str()) != 0 && errno != ENOENT && error == 0) {
            error = errno;
        }
    }
    return error;
}

FileContent ReadContent(int descriptor) {
    constexpr std::string_view kMark = "DUCK";
    constexpr off_t kMarkOffset = 8;
    struct stat info {};
    if (fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) {
        return FileContent::unreadable;
    }
    if (info.st_size == 0) {
        return FileContent::empty;
    }
    std::array<char, kMark.size()> bytes{};
    const ssize_t count = pread(descriptor, bytes.data(), bytes.size(), kMarkOffset);
    if (count < 0) {
        return FileContent::unreadable;
    }
    return kMark == std::string_view(bytes.data(), bytes.size()) ? FileContent::database : FileContent::other;
}

namespace {

/** Calls `visit` with the descriptors that this process has on the file until it returns true. Another thread
    may close one, and reuse its number, at any time: true says that the number meant the file afterwards too.
 */
template <class Visit>
bool VisitDescriptors(const FileLook& file, Visit visit) {
    for (const int descriptor : ListDescriptors()) {
        const auto is_file = [&] {
            struct stat info {};
            return fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) && info.st_dev == file.device &&
                   info.st_ino == file.inode;
        };
        if (is_file() && visit(descriptor) && is_file()) {
            return true;
        }
    }
    return false;
}

}  // namespace

FileContent ReadContentWithoutOpening(const FileLook& file) {
    FileContent content = FileContent::unreadable;
    const bool is_read = VisitDescriptors(file, [&](int descriptor) {
        content = ReadContent(descriptor);
        return content != FileContent::unreadable;
    });
    return is_read ? content : FileContent::unreadable;
}

bool RenewReadLock(const FileLook& file) noexcept {
    try {
        return VisitDescriptors(file, [](int descriptor) {
            struct flock lock {};
            lock.l_type = F_RDLCK;
            lock.l_whence = SEEK_SET;
            return fcntl(descriptor, F_SETLK, &lock) == 0;
        });
    } catch (const std::exception&) {  // no memory for the list
        return false;
    }
}

}  // namespace mduckdb
