#include "procedures/spill_folder.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace mduckdb {

SpillFolder::SpillFolder(const std::string& parent)
    : path_(parent + "/mduckdb-" + std::to_string(getpid()) + "-XXXXXX"), process_(getpid()) {
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category());
    }
}

SpillFolder::~SpillFolder() {
    std::error_code error;
    if (process_ == getpid()) {
        std::filesystem::remove_all(path_, error);
    }
}

}  // namespace mduckdb
