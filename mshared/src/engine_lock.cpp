#include "nbx/engine_lock.h"

#include <array>

namespace nbx {
namespace {

constexpr unsigned kGlobalLockTakenSlot = 0;
constexpr unsigned kDiagnoseThreadSlot = 1;

thread_local std::array<bool, 2> t_flags{};

// Needs no constructor and no destructor at run time, so it serves before and after everything else.
constinit Mutex g_engine_lock;

}  // namespace

Mutex& GetGlobalEngineLock() noexcept {
    return g_engine_lock;
}

bool ThreadFlag::get() const noexcept {
    return t_flags[slot_];
}

void ThreadFlag::put(bool value) const noexcept {
    t_flags[slot_] = value;
}

constinit const ThreadFlag gIsGlobalLockTaken(kGlobalLockTakenSlot);
constinit const ThreadFlag gIsThisDiagnoseMTThread(kDiagnoseThreadSlot);

}  // namespace nbx
