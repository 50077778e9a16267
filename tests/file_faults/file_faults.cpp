#include "file_faults/file_faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using file_faults::Call;
using file_faults::Fault;
using file_faults::kCallCount;
using file_faults::kShort;

constexpr int kMostDescriptors = 65536;

std::atomic<bool> is_on{false};
char watched_folder[4096];
Fault chosen;
std::array<std::atomic<uint64_t>, kCallCount> counts;
std::array<std::atomic<bool>, kMostDescriptors> is_watched;

template <class Function>
Function Next(Function /*type*/, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool IsInside(const char* path) noexcept {
    return is_on && path != nullptr && std::strncmp(path, watched_folder, std::strlen(watched_folder)) == 0;
}

/** A path that is relative to a folder's descriptor belongs to that folder. */
bool IsInside(int folder, const char* path) noexcept {
    return IsInside(path) || (is_on && path != nullptr && path[0] != '/' && folder >= 0 &&
                              folder < kMostDescriptors && is_watched[static_cast<std::size_t>(folder)]);
}

bool IsWatched(int descriptor) noexcept {
    return is_on && descriptor >= 0 && descriptor < kMostDescriptors &&
           is_watched[static_cast<std::size_t>(descriptor)];
}

int Watch(int descriptor, bool is_inside) noexcept {
    if (descriptor >= 0 && descriptor < kMostDescriptors) {
        is_watched[static_cast<std::size_t>(descriptor)] = is_inside;
    }
    return descriptor;
}

/** 0 for a call that goes on as it should. */
int Judge(Call call) noexcept {
    const uint64_t number_of_all = ++counts[static_cast<std::size_t>(Call::kEvery)];
    const uint64_t number_of_kind = ++counts[static_cast<std::size_t>(call)];
    const uint64_t number = chosen.call == Call::kEvery ? number_of_all : number_of_kind;
    const bool is_chosen = (chosen.call == call || chosen.call == Call::kEvery) && chosen.n != 0 &&
                           (chosen.is_for_ever ? number >= chosen.n : number == chosen.n);
    if (is_chosen && chosen.error != kShort) {
        errno = chosen.error;
    }
    return is_chosen ? chosen.error : 0;
}

/** Whether the call fails now. */
bool Fails(Call call, bool is_inside) noexcept {
    return is_inside && Judge(call) != 0;
}

/** Calls `go(length)` for as many bytes as the call may have. */
template <class Go>
ssize_t Transfer(Call call, int descriptor, std::size_t length, Go go) noexcept {
    const int fault = IsWatched(descriptor) ? Judge(call) : 0;
    if (fault == kShort) {
        return go(length > 1 ? length / 2 : length);
    }
    return fault != 0 ? -1 : go(length);
}

mode_t ModeOf(int flags, std::va_list arguments) noexcept {
    return (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

template <class Open>
int OpenInside(bool is_inside, Open open_it) noexcept {
    return Fails(Call::kOpen, is_inside) ? -1 : Watch(open_it(), is_inside);
}

}  // namespace

namespace file_faults {

void Begin(const char* folder, const Fault& fault) noexcept {
    std::strncpy(watched_folder, folder, sizeof watched_folder - 1);
    chosen = fault;
    for (auto& count : counts) {
        count = 0;
    }
    is_on = true;
}

std::array<uint64_t, kCallCount> End() noexcept {
    is_on = false;
    std::array<uint64_t, kCallCount> result{};
    for (std::size_t i = 0; i < kCallCount; ++i) {
        result[i] = counts[i];
    }
    return result;
}

}  // namespace file_faults

// What the C library has under these names. The names with 64 are the same functions.
#define FILE_FAULTS_EXPORT extern "C" __attribute__((visibility("default")))
#define FILE_FAULTS_NEXT(name) static const auto next = Next(&::name, #name)

FILE_FAULTS_EXPORT int open(const char* path, int flags, ...) {
    FILE_FAULTS_NEXT(open);
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenInside(IsInside(path), [&] { return next(path, flags, mode); });
}
FILE_FAULTS_EXPORT int openat(int folder, const char* path, int flags, ...) {
    FILE_FAULTS_NEXT(openat);
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenInside(IsInside(folder, path), [&] { return next(folder, path, flags, mode); });
}
FILE_FAULTS_EXPORT int mkdir(const char* path, mode_t mode) {
    FILE_FAULTS_NEXT(mkdir);
    return Fails(Call::kOpen, IsInside(path)) ? -1 : next(path, mode);
}
FILE_FAULTS_EXPORT FILE* fopen64(const char* path, const char* mode) {
    FILE_FAULTS_NEXT(fopen64);
    const bool is_inside = IsInside(path);
    if (Fails(Call::kOpen, is_inside)) {
        return nullptr;
    }
    FILE* const file = next(path, mode);
    if (file != nullptr) {
        Watch(fileno(file), is_inside);
    }
    return file;
}
FILE_FAULTS_EXPORT int close(int descriptor) {
    FILE_FAULTS_NEXT(close);
    Watch(descriptor, false);
    return next(descriptor);
}
FILE_FAULTS_EXPORT ssize_t read(int descriptor, void* bytes, std::size_t length) {
    FILE_FAULTS_NEXT(read);
    return Transfer(Call::kRead, descriptor, length,
                    [&](std::size_t n) { return next(descriptor, bytes, n); });
}
FILE_FAULTS_EXPORT ssize_t pread(int descriptor, void* bytes, std::size_t length, off_t at) {
    FILE_FAULTS_NEXT(pread);
    return Transfer(Call::kRead, descriptor, length,
                    [&](std::size_t n) { return next(descriptor, bytes, n, at); });
}
FILE_FAULTS_EXPORT ssize_t write(int descriptor, const void* bytes, std::size_t length) {
    FILE_FAULTS_NEXT(write);
    return Transfer(Call::kWrite, descriptor, length,
                    [&](std::size_t n) { return next(descriptor, bytes, n); });
}
FILE_FAULTS_EXPORT ssize_t pwrite(int descriptor, const void* bytes, std::size_t length, off_t at) {
    FILE_FAULTS_NEXT(pwrite);
    return Transfer(Call::kWrite, descriptor, length,
                    [&](std::size_t n) { return next(descriptor, bytes, n, at); });
}
FILE_FAULTS_EXPORT ssize_t writev(int descriptor, const iovec* parts, int count) {
    FILE_FAULTS_NEXT(writev);
    return Fails(Call::kWrite, IsWatched(descriptor)) ? -1 : next(descriptor, parts, count);
}
FILE_FAULTS_EXPORT int ftruncate(int descriptor, off_t length) noexcept {
    FILE_FAULTS_NEXT(ftruncate);
    return Fails(Call::kTruncate, IsWatched(descriptor)) ? -1 : next(descriptor, length);
}
FILE_FAULTS_EXPORT int fsync(int descriptor) {
    FILE_FAULTS_NEXT(fsync);
    return Fails(Call::kSync, IsWatched(descriptor)) ? -1 : next(descriptor);
}
FILE_FAULTS_EXPORT int fdatasync(int descriptor) {
    FILE_FAULTS_NEXT(fdatasync);
    return Fails(Call::kSync, IsWatched(descriptor)) ? -1 : next(descriptor);
}
FILE_FAULTS_EXPORT int rename(const char* from, const char* to) noexcept {
    FILE_FAULTS_NEXT(rename);
    return Fails(Call::kRename, IsInside(to)) ? -1 : next(from, to);
}
FILE_FAULTS_EXPORT int renameat2(int from_folder, const char* from, int to_folder, const char* to,
                                 unsigned flags) noexcept {
    FILE_FAULTS_NEXT(renameat2);
    return Fails(Call::kRename, IsInside(to_folder, to)) ? -1 : next(from_folder, from, to_folder, to, flags);
}
FILE_FAULTS_EXPORT int link(const char* from, const char* to) noexcept {
    FILE_FAULTS_NEXT(link);
    return Fails(Call::kRename, IsInside(to)) ? -1 : next(from, to);
}
FILE_FAULTS_EXPORT int unlink(const char* path) noexcept {
    FILE_FAULTS_NEXT(unlink);
    return Fails(Call::kUnlink, IsInside(path)) ? -1 : next(path);
}
FILE_FAULTS_EXPORT int unlinkat(int folder, const char* path, int flags) noexcept {
    FILE_FAULTS_NEXT(unlinkat);
    return Fails(Call::kUnlink, IsInside(folder, path)) ? -1 : next(folder, path, flags);
}
FILE_FAULTS_EXPORT int remove(const char* path) noexcept {
    FILE_FAULTS_NEXT(remove);
    return Fails(Call::kUnlink, IsInside(path)) ? -1 : next(path);
}
FILE_FAULTS_EXPORT int rmdir(const char* path) noexcept {
    FILE_FAULTS_NEXT(rmdir);
    return Fails(Call::kUnlink, IsInside(path)) ? -1 : next(path);
}
