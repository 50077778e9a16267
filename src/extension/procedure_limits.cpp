#include "extension/procedure_limits.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "procedures/call_limits.h"

namespace mduckdb {

namespace {

using nbx::I_Location;
using nbx::smart_ptr;
using nbx::mrsql::DuckDBProcedureLimits;

constexpr uint32_t kMostThreads = 1024;

/** The folder's path without links. */
std::string RequireFolder(const smart_ptr<I_Location>& location) {
    if (!location) {
        ThrowDetachedError("A folder of the limits is null");
    }
    const std::string path = ToUtf8(location->get_PathText());
    std::string real(PATH_MAX, '\0');
    struct stat info {};
    if (realpath(path.c_str(), real.data()) == nullptr || stat(real.c_str(), &info) != 0 ||
        !S_ISDIR(info.st_mode)) {
        ThrowDuckDBError(location->get_Text(), "The folder does not exist");
    }
    real.resize(real.find('\0'));
    return real;
}

std::unique_ptr<const SpillFolder> MakeSpillFolder(const smart_ptr<I_Location>& location,
                                                   const std::string& parent) {
    try {
        return std::make_unique<const SpillFolder>(parent);
    } catch (const std::system_error& error) {
        ThrowDuckDBError(location->get_Text(),
                         "Cannot create a folder for temporary files: " + error.code().message());
    }
}

smart_ptr<I_Location> LocationOf(const std::string& path) {
    return nbx::CreateLocation(FromUtf8(path));
}

}  // namespace

void PutProcedureLimits(const DuckDBProcedureLimits& limits) {
    auto made = std::make_shared<Limits>();
    made->memory_mb = limits.memory_mb;
    made->threads = std::min(limits.threads, kMostThreads);
    made->time = std::chrono::milliseconds(limits.time_ms);
    made->temp_directory_mb = limits.temp_directory_mb;
    if (limits.allowed_directories) {
        for (const smart_ptr<I_Location>& folder : *limits.allowed_directories) {
            made->folders.push_back(RequireFolder(folder));
        }
    }
    if (limits.temp_directory) {
        made->temp_directory = RequireFolder(limits.temp_directory);
        made->spill = MakeSpillFolder(limits.temp_directory, made->temp_directory);
    }
    PutLimits(std::move(made));
}

DuckDBProcedureLimits GetProcedureLimits() {
    const SharedLimits limits = GetLimits();
    DuckDBProcedureLimits record;
    record.memory_mb = limits->memory_mb;
    record.threads = limits->threads;
    record.time_ms = static_cast<uint32_t>(limits->time.count());
    record.temp_directory_mb = limits->temp_directory_mb;
    if (limits->spill) {
        record.temp_directory = LocationOf(limits->temp_directory);
    }
    if (limits->get_IsConfined()) {
        record.allowed_directories = nbx::MakeObject<nbx::ArrayOfSmartPtrs<smart_ptr<I_Location>>>();
        for (const std::string& folder : limits->folders) {
            record.allowed_directories->Append(LocationOf(folder));
        }
    }
    return record;
}

}  // namespace mduckdb
