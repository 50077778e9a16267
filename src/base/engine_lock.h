#pragma once

#include "nbx/engine_lock.h"
#include "nbx/thread_annotations.h"

namespace mduckdb {

/** Represents the host's global engine lock in the compiler's thread-safety analysis: code that needs the
    lock is annotated with `gEngineLock`, and an `EngineLockScope` provides it. It does not exist at run
    time. */
class NBX_CAPABILITY("engine lock") EngineLockRole {};
inline constexpr EngineLockRole gEngineLock;

/** Holds the host's global engine lock for a scope. Does not lock on a thread that already holds the lock,
    nor on the host's diagnostic thread; the end of the scope then releases nothing. */
class NBX_SCOPED_CAPABILITY EngineLockScope : nbx::noncopyable {
  public:
    EngineLockScope() NBX_ACQUIRE(gEngineLock) NBX_NO_THREAD_SAFETY_ANALYSIS {
        if (nbx::gIsThisDiagnoseMTThread.get() || nbx::gIsGlobalLockTaken.get()) {
            return;
        }
        locked_ = &nbx::GetGlobalEngineLock();
        locked_->lock();
        nbx::gIsGlobalLockTaken.put(true);
    }
    ~EngineLockScope() NBX_RELEASE() NBX_NO_THREAD_SAFETY_ANALYSIS {
        if (locked_ != nullptr) {
            locked_->unlock();
            nbx::gIsGlobalLockTaken.put(false);
        }
    }

  private:
    /** Null when the scope has nothing to release. */
    nbx::Mutex* locked_ = nullptr;
};

}  // namespace mduckdb
