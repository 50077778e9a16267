#include "base/folders.h"

#include <fcntl.h>
#include <unistd.h>

namespace mduckdb {
namespace {

constexpr int kFolderOnly = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/** Closes the descriptor. */
void DeleteEntries(int descriptor) noexcept {
    const OpenFolder folder(fdopendir(descriptor), &closedir);
    if (!folder) {
        close(descriptor);
        return;
    }
    VisitEntries(folder, [](int parent, const char* name) {
        if (unlinkat(parent, name, 0) == 0) {
            return;
        }
        const int child = openat(parent, name, kFolderOnly);
        if (child >= 0) {
            DeleteEntries(child);
            unlinkat(parent, name, AT_REMOVEDIR);
        }
    });
}

}  // namespace

void DeleteFolder(const std::string& path) noexcept {
    const int descriptor = open(path.c_str(), kFolderOnly);
    if (descriptor >= 0) {
        DeleteEntries(descriptor);
        rmdir(path.c_str());
    }
}

}  // namespace mduckdb
