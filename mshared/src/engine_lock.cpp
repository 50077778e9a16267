#include "nbx/engine_lock.h"

#include <array>

namespace nbx {
namespace {

constexpr unsigned kGlobalLockTakenSlot = 0;
constexpr unsigned kDiagnoseThreadSlot = 1;

thread_local std::array<bool, 2> gThreadFlags{};

// Needs no constructor and no destructor at run time, so it serves before and after everything else.
constinit Mutex gEngineMutex;

}  // namespace

Mutex& GetGlobalEngineLock() noexcept {
    return gEngineMutex;
}

bool ThreadFlag::get() const noexcept {
    return gThreadFlags[slot_];
}

void ThreadFlag::put(bool value) const noexcept {
    gThreadFlags[slot_] = value;
}

constinit const ThreadFlag gIsGlobalLockTaken(kGlobalLockTakenSlot);
constinit const ThreadFlag gIsThisDiagnoseMTThread(kDiagnoseThreadSlot);

}  // namespace nbx
