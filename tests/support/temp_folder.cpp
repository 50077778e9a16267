#include "support/temp_folder.h"

#include <cstdlib>
#include <stdexcept>

TempFolder::TempFolder(const std::filesystem::path& place) {
    std::string name = (place / "mduckdb_test_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder " + name);
    }
    path_ = name;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(path_, ignored);
}
