#include "support/small_disk.h"

#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

SmallDisk::SmallDisk(std::uint64_t bytes) {
    const std::string options = "size=" + std::to_string(bytes);
    if (mount("tmpfs", get_Path().c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
        refusal_ = std::string("no file system of its own can be mounted: ") + std::strerror(errno);
    }
}

SmallDisk::~SmallDisk() {
    if (refusal_.empty()) {
        // Detached, so that a file that was not closed does not leave the mount behind.
        umount2(get_Path().c_str(), MNT_DETACH);
    }
}

void SmallDisk::MakeReadOnly() {
    if (mount(nullptr, get_Path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        throw std::runtime_error(std::string("cannot be made read-only: ") + std::strerror(errno));
    }
}

void SmallDisk::Fill() {
    std::ofstream file(get_Path() / "filler", std::ios::binary);
    const std::vector<char> block(4096);
    while (file.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
    }
}

void SmallDisk::MakeRoom() {
    std::filesystem::remove(get_Path() / "filler");
}
