#pragma once

#include <mutex>

#include "nbx/export.h"
#include "nbx/thread_annotations.h"
#include "nbx/unknown.h"

namespace nbx {

/** A mutex that the compiler's thread-safety analysis knows. */
class NBX_CAPABILITY("mutex") Mutex : noncopyable {
  public:
    void lock() NBX_ACQUIRE() { mutex_.lock(); }
    void unlock() NBX_RELEASE() { mutex_.unlock(); }
    bool try_lock() NBX_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

  private:
    std::mutex mutex_;
};

/** Holds a `Mutex` for a scope. */
class NBX_SCOPED_CAPABILITY MutexLock : noncopyable {
  public:
    explicit MutexLock(Mutex& mutex) NBX_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() NBX_RELEASE() { mutex_.unlock(); }

  private:
    Mutex& mutex_;
};

/** The process-wide lock that guards every change of engine state. Not recursive: a thread that holds
    it has `gIsGlobalLockTaken` set and must not lock again. */
NBX_API Mutex& GetGlobalEngineLock() noexcept;

namespace detail {

/** The values of all `ThreadFlag`s in this thread. Read and written inline, at a fixed place in the thread's
    storage: the lock's scope does so at every call of the module. */
extern NBX_API constinit thread_local bool gThreadFlags[2] __attribute__((tls_model("initial-exec")));

}  // namespace detail

/** A boolean with a value of its own in each thread; false in a thread that never set it. */
class ThreadFlag : noncopyable {
  public:
    explicit constexpr ThreadFlag(unsigned slot) noexcept : slot_(slot) {}
    bool get() const noexcept { return detail::gThreadFlags[slot_]; }
    void put(bool value) const noexcept { detail::gThreadFlags[slot_] = value; }

  private:
    unsigned slot_;
};

/** Whether this thread holds the engine lock. */
inline constexpr ThreadFlag gIsGlobalLockTaken(0);
/** Whether this thread is the host's diagnostic multi-thread test thread, which never takes the lock. */
inline constexpr ThreadFlag gIsThisDiagnoseMTThread(1);

}  // namespace nbx
