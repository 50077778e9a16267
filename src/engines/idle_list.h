#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "engines/engine_use.h"
#include "engines/memory_engine.h"
#include "nbx/unknown.h"

namespace mduckdb {

/** The list behind `IdleEngines`, and the calls that wait for an engine of it. Never destroyed, because calls
 * may end while static objects are destroyed. */
class IdleList : nbx::noncopyable {
  public:
    using Clock = std::chrono::steady_clock;

    /** Throws `std::bad_alloc`, but not in the process that has loaded the library. */
    static IdleList& Get();

    /** The first time for a call, begins its use and may wait. */
    std::optional<MemoryEngine> TakeOne(const EngineTerms& terms, EngineUse& use);
    /** Takes the engine over, or leaves it if it is not wanted. */
    void Add(MemoryEngine& engine);
    void CloseAll();
    void FinishUse(EngineUse& use);
    void EndUse(EngineUse& use);
    void put_IsOn(bool is_on) {
        const std::lock_guard<std::mutex> lock(mutex_);
        is_on_ = is_on;
    }
    uint64_t get_Round() const { return round_; }
    void put_IdleTime(std::chrono::milliseconds time) {
        const std::lock_guard<std::mutex> lock(mutex_);
        idle_time_ = time;
    }
    void List(std::vector<uint64_t>& numbers);
    /** How many engines may be idle. */
    static std::size_t get_Most() noexcept;

  private:
    struct IdleEngine {
        MemoryEngine engine;
        Clock::time_point since;
    };
    struct Waiter;
    struct Stopper : nbx::noncopyable {
        ~Stopper() { Stop(); }
    };

    static void Stop() noexcept;
    void StartThread();
    void Run();
    std::vector<IdleEngine> TakeAll();
    std::optional<MemoryEngine> Find(const EngineTerms& terms);
    bool HasIdle(const EngineTerms& terms) const;
    /** Also counts the call as a running one. */
    std::optional<MemoryEngine> Wait(std::unique_lock<std::mutex>& lock, const EngineTerms& terms);
    /** Until when one of the engines in use is likely to be handed on to a call that waits since `begin`. */
    Clock::time_point get_HopeEnd(Clock::time_point begin) const;
    bool GiveToWaiter(MemoryEngine& engine);
    void Give(Waiter& waiter, MemoryEngine& engine);
    Waiter* FindWaiter(const EngineTerms& terms);

    static std::atomic<IdleList*> gInstance;

    const pid_t process_ = getpid();
    std::mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable closed_;
    /** In the order in which they were added. */
    std::vector<IdleEngine> idle_;
    /** In the order in which they came. */
    std::vector<Waiter*> waiters_;
    /** Calls that use an engine, or open one: before the end of their query, and after it. */
    std::size_t running_ = 0;
    std::size_t reading_ = 0;
    Clock::time_point last_finish_;
    /** Begins differently in each process, so that a child of a fork does not keep an engine of its parent.
     */
    std::atomic<uint64_t> round_{static_cast<uint64_t>(process_) << 32};
    std::chrono::milliseconds idle_time_{5000};
    /** The thread stays for some time after that, so that not every call starts one; until the list is
     * closed.
     */
    Clock::time_point last_keep_;
    std::thread thread_;
    bool has_thread_ = false;
    /** The thread closes an engine now. */
    bool is_closing_ = false;
    std::atomic<bool> is_on_{true};
    bool is_stopped_ = false;
};

}  // namespace mduckdb
