#include "base/folders.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/descriptor.h"

namespace mduckdb {
namespace {

constexpr int kFolderOnly = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/** Leaves the entry `kept`, if given. Closes the descriptor. */
void DeleteEntries(int descriptor, const char* kept) noexcept {
    const OpenFolder folder(fdopendir(descriptor), &closedir);
    if (!folder) {
        close(descriptor);
        return;
    }
    VisitEntries(folder, [kept](int parent, const char* name) {
        if ((kept != nullptr && std::strcmp(name, kept) == 0) || unlinkat(parent, name, 0) == 0) {
            return;
        }
        const int child = openat(parent, name, kFolderOnly);
        if (child >= 0) {
            DeleteEntries(child, nullptr);
            unlinkat(parent, name, AT_REMOVEDIR);
        }
    });
}

}  // namespace

void DeleteFolder(const std::string& path, const char* last) noexcept {
    const Descriptor folder(open(path.c_str(), kFolderOnly));
    if (folder.get() < 0) {
        return;
    }
    DeleteEntries(fcntl(folder.get(), F_DUPFD_CLOEXEC, 0), last);
    unlinkat(folder.get(), last, 0);
    rmdir(path.c_str());
}

}  // namespace mduckdb
