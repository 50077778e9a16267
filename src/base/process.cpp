#include "base/process.h"

#include <pthread.h>

#include <atomic>

namespace mduckdb {

namespace {

std::atomic<uint32_t> gForks{0};

[[maybe_unused]] const int gHandler =
    pthread_atfork(nullptr, nullptr, [] { gForks.fetch_add(1, std::memory_order_relaxed); });

}  // namespace

uint32_t get_ProcessNumber() noexcept {
    return gForks.load(std::memory_order_relaxed);
}

}  // namespace mduckdb
