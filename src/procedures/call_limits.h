#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "procedures/spill_folder.h"

namespace mduckdb {

/** The most that one call may use. A number of 0, a null and an empty list set no limit. */
struct Limits {
    uint32_t memory_mb = 0;
    uint32_t threads = 0;
    std::chrono::milliseconds time{0};
    uint32_t temp_directory_mb = 0;
    /** The folder of the host, and the one that the module created in it. */
    std::string temp_directory;
    std::unique_ptr<const SpillFolder> spill;
    /** Real paths, without links. */
    std::vector<std::string> folders;

    bool get_IsConfined() const noexcept { return !folders.empty(); }
};

using SharedLimits = std::shared_ptr<const Limits>;

/** The limits for a call that begins now; never null. From any thread, as `PutLimits`. */
SharedLimits GetLimits();
/** Also closes the idle engines. */
void PutLimits(SharedLimits limits) noexcept;

}  // namespace mduckdb
