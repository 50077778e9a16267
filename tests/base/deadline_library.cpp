// A library with its own timer, which a test unloads.
#include "base/deadline.h"

extern "C" __attribute__((visibility("default"))) bool run_deadline() {
    static std::atomic<bool> is_cut{false};
    const auto time = mduckdb::Deadline::Clock::now();
    // Armed until the library is unloaded.
    static const mduckdb::Deadline deadline(
        time, [](void*) noexcept { is_cut = true; }, nullptr);
    while (!is_cut && mduckdb::Deadline::Clock::now() < time + std::chrono::seconds(10)) {
    }
    return is_cut;
}
