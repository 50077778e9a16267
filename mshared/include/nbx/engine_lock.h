#pragma once

#include <mutex>

#include "nbx/export.h"
#include "nbx/thread_annotations.h"
#include "nbx/unknown.h"

namespace nbx {

/** A mutex that clang's thread-safety analysis can check. Not recursive: a thread that locks it twice
    deadlocks. Only the thread that locked it may unlock it. */
class NBX_CAPABILITY("mutex") Mutex : noncopyable {
  public:
    void lock() NBX_ACQUIRE() { mutex_.lock(); }
    void unlock() NBX_RELEASE() { mutex_.unlock(); }
    /** Returns false at once if another thread holds the mutex. */
    bool try_lock() NBX_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

  private:
    std::mutex mutex_;
};

/** Locks a `Mutex` for a scope. The mutex must outlive it. */
class NBX_SCOPED_CAPABILITY MutexLock : noncopyable {
  public:
    explicit MutexLock(Mutex& mutex) NBX_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() NBX_RELEASE() { mutex_.unlock(); }

  private:
    Mutex& mutex_;
};

/** The process-wide lock that guards every change of engine state. There is one for all loaded modules; it
    lives as long as the process.

    Not recursive. The holder sets `gIsGlobalLockTaken` while it holds the lock, so that code that may run
    with or without the lock can decide whether to take it. A thread with `gIsThisDiagnoseMTThread` set never
    takes it. The mutex itself knows neither flag: callers follow this protocol. */
NBX_API Mutex& GetGlobalEngineLock() noexcept;

namespace detail {

/** The values of all `ThreadFlag`s in this thread. They are read and written inline, at a fixed place in the
    thread's storage, because each call into the module does so when it takes the engine lock. */
extern NBX_API constinit thread_local bool gThreadFlags[2] __attribute__((tls_model("initial-exec")));

}  // namespace detail

/** A boolean with its own value in each thread; false in a thread that never set it. `slot` is its place in
    `detail::gThreadFlags`. */
class ThreadFlag : noncopyable {
  public:
    explicit constexpr ThreadFlag(unsigned slot) noexcept : slot_(slot) {}
    bool get() const noexcept { return detail::gThreadFlags[slot_]; }
    void put(bool value) const noexcept { detail::gThreadFlags[slot_] = value; }

  private:
    unsigned slot_;
};

/** Whether this thread holds the engine lock. The code that takes the lock maintains it. */
inline constexpr ThreadFlag gIsGlobalLockTaken(0);
/** Whether this thread is the host's diagnostic multi-thread test thread, which never takes the lock. */
inline constexpr ThreadFlag gIsThisDiagnoseMTThread(1);

}  // namespace nbx
