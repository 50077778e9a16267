#include "base/deadline.h"

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

#include "base/own_thread.h"

namespace mduckdb {

/** The deadlines of a process and the thread that watches them. Never destroyed, because deadlines may still
    be destroyed while static objects are. */
class Timer : nbx::noncopyable {
  public:
    using Clock = Deadline::Clock;

    /** A child of a fork has a timer of its own: its parent's has no thread there, and perhaps a mutex that
        stays locked for ever. */
    static Timer& Get();

    void Add(Deadline& deadline);
    void Remove(Deadline& deadline) noexcept;

  private:
    /** Joins the thread at the end of the library's life. */
    struct Stopper : nbx::noncopyable {
        ~Stopper() { Stop(); }
    };
    /** The time between two calls for one deadline. */
    static constexpr std::chrono::milliseconds kRepeat{5};

    static void Stop() noexcept;
    void Start();
    void Run();
    /** The deadline that is due, or null, and when the next one will be. */
    Deadline* FindDue(Clock::time_point now, Clock::time_point& wake) const;

    static std::atomic<Timer*> gInstance;

    const pid_t process_ = getpid();
    std::mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable returned_;
    Deadline* first_ = nullptr;
    /** The deadline whose function runs now. */
    const Deadline* calling_ = nullptr;
    /** When the thread looks again by itself. */
    Clock::time_point wake_ = Clock::time_point::max();
    bool is_stopped_ = false;
    std::thread thread_;
};

std::atomic<Timer*> Timer::gInstance{nullptr};

Timer& Timer::Get() {
    // Not on the heap, where it would be left behind when the library is unloaded.
    alignas(Timer) static std::byte place[sizeof(Timer)];
    [[maybe_unused]] static Timer* const first = gInstance = new (place) Timer;
    Timer* timer = gInstance.load();
    if (timer->process_ != getpid()) {
        auto made = std::make_unique<Timer>();
        if (gInstance.compare_exchange_strong(timer, made.get())) {
            timer = made.release();
        }
    }
    return *timer;
}

void Timer::Start() {
    static const Stopper stopper;
    thread_ = StartOwnThread(
        "mduckdb-timer", [](void* timer) noexcept { static_cast<Timer*>(timer)->Run(); }, this);
}

void Timer::Stop() noexcept {
    Timer* const timer = gInstance.load();
    if (timer == nullptr || timer->process_ != getpid()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(timer->mutex_);
        timer->is_stopped_ = true;
    }
    timer->changed_.notify_all();
    if (timer->thread_.joinable()) {
        timer->thread_.join();
    }
}

void Timer::Add(Deadline& deadline) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!thread_.joinable() && !is_stopped_) {
        Start();
    }
    deadline.next_ = first_;
    if (first_ != nullptr) {
        first_->previous_ = &deadline;
    }
    first_ = &deadline;
    if (deadline.next_call_ < wake_) {
        changed_.notify_all();
    }
}

void Timer::Remove(Deadline& deadline) noexcept {
    // In a child that inherited the deadline nothing calls it.
    if (process_ != getpid()) {
        return;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    (deadline.previous_ != nullptr ? deadline.previous_->next_ : first_) = deadline.next_;
    if (deadline.next_ != nullptr) {
        deadline.next_->previous_ = deadline.previous_;
    }
    returned_.wait(lock, [&] { return calling_ != &deadline; });
}

Deadline* Timer::FindDue(Clock::time_point now, Clock::time_point& wake) const {
    wake = Clock::time_point::max();
    for (Deadline* each = first_; each != nullptr; each = each->next_) {
        if (each->next_call_ <= now) {
            return each;
        }
        wake = std::min(wake, each->next_call_);
    }
    return nullptr;
}

void Timer::Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!is_stopped_) {
        const Clock::time_point now = Clock::now();
        Deadline* const due = FindDue(now, wake_);
        if (due != nullptr) {
            due->next_call_ = now + kRepeat;
            due->has_cut_.store(true);
            calling_ = due;
            lock.unlock();
            due->cut_(due->target_);
            lock.lock();
            calling_ = nullptr;
            returned_.notify_all();
        } else if (wake_ == Clock::time_point::max()) {
            changed_.wait(lock);
        } else {
            changed_.wait_until(lock, wake_);
        }
    }
}

Deadline::Deadline(Clock::time_point time, Cut cut, void* target)
    : time_(time), cut_(cut), target_(target), timer_(Timer::Get()), next_call_(time) {
    timer_.Add(*this);
}

Deadline::~Deadline() {
    timer_.Remove(*this);
}

}  // namespace mduckdb
