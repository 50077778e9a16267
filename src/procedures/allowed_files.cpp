#include "procedures/allowed_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <stdexcept>

#include "engines/file_system.h"

namespace mduckdb {
namespace {

/** Empty when the system cannot follow the path to its end. */
std::string RealPath(const std::string& path) {
    std::string real(PATH_MAX, '\0');
    if (realpath(path.c_str(), real.data()) == nullptr) {
        return {};
    }
    real.resize(real.find('\0'));
    return real;
}

bool IsInside(const std::string& path, const std::string& folder) {
    return path.starts_with(folder.ends_with('/') ? folder : folder + "/");
}

bool IsInsideAny(const std::string& path, const std::vector<std::string>& folders) {
    return std::any_of(folders.begin(), folders.end(),
                       [&](const std::string& folder) { return IsInside(path, folder); });
}

/** The path of a file that is not there, if its folder is; else empty. */
std::string MissingFile(const std::string& file) {
    struct stat info {};
    if (lstat(file.c_str(), &info) == 0 || errno != ENOENT) {
        return {};
    }
    const std::size_t slash = file.rfind('/');
    const std::string folder = RealPath(slash == file.npos ? "." : file.substr(0, slash + 1));
    return folder.empty() ? folder : folder + "/" + file.substr(slash + 1);
}

/** DuckDB reads the log of a database as a part of it. */
bool AreLogsInside(const std::string& file, const std::vector<std::string>& folders) {
    return std::all_of(kLogEndings.begin(), kLogEndings.end(), [&](const char* ending) {
        const std::string log = file + ending;
        struct stat info {};
        return lstat(log.c_str(), &info) != 0 || IsInsideAny(RealPath(log), folders);
    });
}

}  // namespace

std::string RequireAllowed(const std::string& file, const std::vector<std::string>& folders) {
    std::string path = RealPath(file);
    if (path.empty()) {
        path = MissingFile(file);
    }
    if (!IsInsideAny(path, folders) || !AreLogsInside(path, folders)) {
        throw std::runtime_error("Cannot read '" + file +
                                 "': it is not in a folder that procedures may read.");
    }
    return path;
}

}  // namespace mduckdb
