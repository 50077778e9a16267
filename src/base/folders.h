#pragma once

#include <dirent.h>

#include <cstring>
#include <memory>
#include <string>

namespace mduckdb {

/* The standard library's iterators of folders, and what is built on them, end the process when memory runs
   out on the way. */

/** A folder that is open to be read; null when it cannot be. */
using OpenFolder = std::unique_ptr<DIR, int (*)(DIR*)>;

/** Calls `visit(descriptor, name)` for each entry of the folder, with the folder's descriptor. */
template <class Visit>
void VisitEntries(const OpenFolder& folder, Visit visit) {
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        const char* name = static_cast<const char*>(entry->d_name);
        if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) {
            visit(dirfd(folder.get()), name);
        }
    }
}

/** Deletes a folder and everything in it, as far as the system allows. The entry `last` goes after all
   others: a process that is killed meanwhile leaves it. */
void DeleteFolder(const std::string& path, const char* last) noexcept;

}  // namespace mduckdb
