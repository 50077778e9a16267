#include "base/process.h"

#include <dirent.h>
#include <pthread.h>

#include <atomic>
#include <charconv>
#include <memory>
#include <string_view>

namespace mduckdb {

namespace {

std::atomic<uint32_t> gForks{0};

[[maybe_unused]] const int gHandler =
    pthread_atfork(nullptr, nullptr, [] { gForks.fetch_add(1, std::memory_order_relaxed); });

}  // namespace

uint32_t get_ProcessNumber() noexcept {
    return gForks.load(std::memory_order_relaxed);
}

std::vector<int> ListDescriptors() {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), &closedir);
    std::vector<int> descriptors;
    while (const dirent* const entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        int descriptor = -1;
        if (std::from_chars(name.begin(), name.end(), descriptor).ec == std::errc{} &&
            descriptor != dirfd(folder.get())) {
            descriptors.push_back(descriptor);
        }
    }
    return descriptors;
}

}  // namespace mduckdb
