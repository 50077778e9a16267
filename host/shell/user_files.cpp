#include "shell/user_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace mduckdb_host {

namespace {

namespace fs = std::filesystem;

/** The user's folder for the program: in the one that the variable names, or in a folder of the home
    directory. Empty when neither is known. */
fs::path FindUserFolder(const char* variable, const char* below_home) {
    const char* const named = std::getenv(variable);
    const char* const home = std::getenv("HOME");
    if (named != nullptr && *named == '/') {
        return fs::path(named) / "mduckdb";
    }
    return home != nullptr && *home != '\0' ? fs::path(home) / below_home / "mduckdb" : fs::path();
}

}  // namespace

std::string FindStartUpFile() {
    const fs::path folder = FindUserFolder("XDG_CONFIG_HOME", ".config");
    return folder.empty() ? std::string() : (folder / "shellrc").string();
}

std::string PrepareHistoryFile() {
    const fs::path folder = FindUserFolder("XDG_STATE_HOME", ".local/state");
    if (folder.empty()) {
        return {};
    }
    std::error_code error;
    fs::create_directories(folder, error);
    std::string file = (folder / "history").string();
    // Only the owner may read it, since statements may contain secrets.
    const int descriptor = ::open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return {};
    }
    ::close(descriptor);
    return file;
}

}  // namespace mduckdb_host
