#include "nbx/engine_lock.h"

namespace nbx {
namespace {

// Needs no constructor and no destructor at run time, so it serves before and after everything else.
constinit Mutex gEngineMutex;

}  // namespace

constinit thread_local bool detail::gThreadFlags[2]{};

Mutex& GetGlobalEngineLock() noexcept {
    return gEngineMutex;
}

}  // namespace nbx
