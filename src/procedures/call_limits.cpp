#include "procedures/call_limits.h"

#include <utility>

#include "engines/idle_engines.h"
#include "nbx/engine_lock.h"

namespace mduckdb {
namespace {

/** Never destroyed: a call may still begin on another thread while the process exits. */
class CurrentLimits {
  public:
    static CurrentLimits& Get() {
        static auto* const current = new CurrentLimits;
        return *current;
    }
    SharedLimits get() {
        const nbx::MutexLock lock(mutex_);
        return limits_;
    }
    void Put(SharedLimits limits) noexcept {
        const nbx::MutexLock lock(mutex_);
        limits_.swap(limits);
    }

  private:
    nbx::Mutex mutex_;
    SharedLimits limits_ NBX_GUARDED_BY(mutex_) = std::make_shared<const Limits>();
};

/** Has the folder of the last limits removed when the library goes. */
struct Cleaner {
    Cleaner() = default;
    Cleaner(const Cleaner&) = delete;
    Cleaner& operator=(const Cleaner&) = delete;
    ~Cleaner() { CurrentLimits::Get().Put(nullptr); }
};

}  // namespace

SharedLimits GetLimits() {
    SharedLimits limits = CurrentLimits::Get().get();
    return limits ? limits : std::make_shared<const Limits>();
}

void PutLimits(SharedLimits limits) noexcept {
    static const Cleaner cleaner;
    CurrentLimits::Get().Put(std::move(limits));
    // No call has their limits any more.
    IdleEngines::CloseAll();
}

}  // namespace mduckdb
