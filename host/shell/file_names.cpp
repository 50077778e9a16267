#include "shell/file_names.h"

#include <algorithm>
#include <filesystem>

namespace mduckdb_host {

std::vector<std::string> CompleteFileName(const std::string& start) {
    namespace fs = std::filesystem;
    const std::size_t slash = start.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : start.substr(0, slash + 1);
    const std::string name_start = start.substr(folder.size());
    std::vector<std::string> paths;
    std::error_code error;
    for (fs::directory_iterator entry(folder.empty() ? "." : folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        // A hidden file appears only to those who begin its name.
        if (name.starts_with(name_start) && (name[0] != '.' || !name_start.empty())) {
            std::error_code unknown;
            paths.push_back(folder + name + (entry->is_directory(unknown) ? "/" : ""));
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

}  // namespace mduckdb_host
