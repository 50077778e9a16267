#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/deadline.h"
#include "nbx/engine_lock.h"
#include "nbx/unknown.h"

namespace mduckdb {

/** The threads on which DuckDB works for one connection, and the end of their waiting for an HTTP server.

    DuckDB does not look for an interrupt while its HTTP client waits, and the client offers no way to stop
   it. But it waits for a socket of this process, and shutting the socket down makes the request fail. A
   socket must not be guessed: it could belong to another engine or to the host. The system tells in which
   call a thread is, with its arguments, and how often it has been switched out; a thread whose number is the
   same before and after its socket was duplicated has waited all the time, for this very socket.

    A file goes to an object store on threads that DuckDB starts for it, while a thread of the connection
   waits for them. Such a thread's sockets are shut down when its memory proves that it works for what the
   other one waits for (`uploads.h`).

    Where the system does not tell (without /proc, or in a process that no debugger may look at), nothing is
    shut down, and the client's own time ends the wait. */
class ServerWaits : nbx::noncopyable {
  public:
    /** The current thread works for the connection until it leaves. Entering may be nested. */
    void Enter() noexcept;
    /** Afterwards the thread's sockets are not touched; waits while they are looked at. */
    void Leave() noexcept;

    /** Shuts down what the threads wait for, if it is an HTTP server that has been silent for a moment, or an
        upload to one. To be called again every few milliseconds, since the client asks again. From any
        thread. */
    void EndOnce() noexcept;
    /** Does so, on the timer's thread, until the work that goes on now has ended; nothing without work. */
    void End() noexcept;

    /** Called when an engine of this process has got an HTTP client. Without any, work costs next to nothing.
        The work that the thread does begins with this. */
    static void NoteClient() noexcept;
    static bool get_HasClients() noexcept { return gHasClients.load(std::memory_order_relaxed); }

    /** A call into DuckDB, by the thread that makes it; never inside another one. */
    class Work : nbx::noncopyable {
      public:
        /** `is_interrupted`: `End` may have come too early. `may_bring_client`: an engine may get a client
            meanwhile, on any thread. */
        Work(ServerWaits& waits, const std::atomic<bool>& is_interrupted,
             bool may_bring_client = false) noexcept
            : waits_(waits), is_interrupted_(is_interrupted) {
            if (may_bring_client || get_HasClients()) {
                Begin();
            } else {
                gCurrent = this;
            }
        }
        ~Work() {
            if (has_begun_) {
                End();
            } else {
                gCurrent = nullptr;
            }
        }

      private:
        friend class ServerWaits;
        void Begin() noexcept;
        void End() noexcept;

        ServerWaits& waits_;
        const std::atomic<bool>& is_interrupted_;
        bool has_begun_ = false;
    };

  private:
    struct Thread {
        pid_t number;
        uint32_t depth;
        /** Which wait was seen last, and since when. */
        uint64_t switches;
        Deadline::Clock::time_point since;
    };

    std::vector<Thread>::iterator Find(pid_t number) NBX_REQUIRES(mutex_);

    static std::atomic<bool> gHasClients;
    /** The work of this thread that has not begun. */
    static constinit thread_local Work* gCurrent;

    nbx::Mutex mutex_;
    std::vector<Thread> threads_ NBX_GUARDED_BY(mutex_);
    uint32_t works_ NBX_GUARDED_BY(mutex_) = 0;
    /** A wait of this work was ended; the next ones, in which the client asks again, are not given time. */
    bool is_silent_ NBX_GUARDED_BY(mutex_) = false;
    /** Not destroyed under the mutex, for which its thread may wait. */
    std::unique_ptr<Deadline> repeat_ NBX_GUARDED_BY(mutex_);
};

}  // namespace mduckdb
