#include "engines/idle_engines.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "base/own_thread.h"

namespace mduckdb {

namespace {

using Clock = std::chrono::steady_clock;

/** About twice as long as an opening takes where nothing else runs. */
constexpr std::chrono::milliseconds kPatience{20};
/** A thread that calls again at once goes on with its engine, without a switch of threads, until another call
    has waited for this long. */
constexpr std::chrono::milliseconds kTurn{5};
/** Most hosts close the cursor of a small result within this time. */
constexpr std::chrono::milliseconds kReadingTime{5};

struct IdleEngine {
    MemoryEngine engine;
    Clock::time_point since;
};

/** A call that waits for an engine. */
struct Waiter {
    const EngineTerms& terms;
    const Clock::time_point since = Clock::now();
    std::optional<MemoryEngine> given;
    std::condition_variable changed;

    explicit Waiter(const EngineTerms& wanted) : terms(wanted) {}
};

}  // namespace

/** The list of a process. Never destroyed, because calls may end while static objects are destroyed. */
class IdleList : nbx::noncopyable {
  public:
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

  private:
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

std::atomic<IdleList*> IdleList::gInstance{nullptr};

IdleList& IdleList::Get() {
    // Not on the heap, where nobody would delete it.
    alignas(IdleList) static std::byte place[sizeof(IdleList)];
    [[maybe_unused]] static IdleList* const first = gInstance = new (place) IdleList;
    IdleList* list = gInstance.load();
    if (list->process_ != getpid()) {
        auto made = std::make_unique<IdleList>();
        made->is_on_ = list->is_on_.load();
        if (gInstance.compare_exchange_strong(list, made.get())) {
            list = made.release();
        }
    }
    return *list;
}

void IdleList::StartThread() {
    static const Stopper stopper;
    if (thread_.joinable()) {
        thread_.join();  // It has ended, or is about to.
    }
    thread_ = StartOwnThread(
        "mduckdb-idle", [](void* list) noexcept { static_cast<IdleList*>(list)->Run(); }, this);
    has_thread_ = true;
}

void IdleList::Stop() noexcept {
    IdleList* const list = gInstance.load();
    if (list->process_ != getpid()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(list->mutex_);
        list->is_stopped_ = true;
    }
    // Its thread closes the engines: those variables of this thread that DuckDB needs for it may be destroyed
    // already.
    list->changed_.notify_all();
    if (list->thread_.joinable()) {
        list->thread_.join();
    }
}

std::vector<IdleEngine> IdleList::TakeAll() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++round_;
    last_keep_ = Clock::time_point{};
    closed_.wait(lock, [this] { return !is_closing_; });
    return std::exchange(idle_, {});
}

void IdleList::CloseAll() {
    TakeAll();
    changed_.notify_all();
}

std::optional<MemoryEngine> IdleList::TakeOne(const EngineTerms& terms, EngineUse& use) {
    std::unique_lock<std::mutex> lock(mutex_);
    std::optional<MemoryEngine> taken = Find(terms);
    if (use.state_ == EngineUse::State::none) {
        if (!taken) {
            taken = Wait(lock, terms);
        } else {
            ++running_;
        }
        use.state_ = EngineUse::State::running;
        use.process_ = process_;
    }
    return taken;
}

std::optional<MemoryEngine> IdleList::Find(const EngineTerms& terms) {
    const auto found = std::find_if(idle_.rbegin(), idle_.rend(),
                                    [&](const IdleEngine& each) { return each.engine.get_Terms() == terms; });
    if (found == idle_.rend()) {
        return std::nullopt;
    }
    std::optional<MemoryEngine> taken(std::move(found->engine));
    idle_.erase(std::next(found).base());
    return taken;
}

bool IdleList::HasIdle(const EngineTerms& terms) const {
    return std::any_of(idle_.begin(), idle_.end(),
                       [&](const IdleEngine& each) { return each.engine.get_Terms() == terms; });
}

Clock::time_point IdleList::get_HopeEnd(Clock::time_point begin) const {
    const std::size_t most = IdleEngines::get_Most();
    if (is_stopped_ || !is_on_ || running_ + reading_ < most) {
        return begin;
    }
    const Clock::time_point end = begin + kPatience;
    return running_ >= most ? end : std::min(end, last_finish_ + kReadingTime);
}

std::optional<MemoryEngine> IdleList::Wait(std::unique_lock<std::mutex>& lock, const EngineTerms& terms) {
    Waiter waiter(terms);
    waiters_.push_back(&waiter);
    while (!waiter.given) {
        if (std::optional<MemoryEngine> found = Find(terms)) {
            Give(waiter, *found);
            break;
        }
        const Clock::time_point end = get_HopeEnd(waiter.since);
        if (Clock::now() >= end) {
            std::erase(waiters_, &waiter);
            ++running_;
            break;
        }
        waiter.changed.wait_until(lock, end);
    }
    // This one may have been woken for an engine that it did not take.
    for (const IdleEngine& each : idle_) {
        if (Waiter* const next = FindWaiter(each.engine.get_Terms())) {
            next->changed.notify_one();
        }
    }
    return std::move(waiter.given);
}

Waiter* IdleList::FindWaiter(const EngineTerms& terms) {
    const auto found = std::find_if(waiters_.begin(), waiters_.end(),
                                    [&](const Waiter* each) { return each->terms == terms; });
    return found == waiters_.end() ? nullptr : *found;
}

void IdleList::Give(Waiter& waiter, MemoryEngine& engine) {
    std::erase(waiters_, &waiter);
    // It counts from here on, so that nobody else takes the engine for one that is free.
    ++running_;
    waiter.given.emplace(std::move(engine));
}

/** Or leaves the engine, which a call that comes first may take. */
bool IdleList::GiveToWaiter(MemoryEngine& engine) {
    Waiter* const waiter = FindWaiter(engine.get_Terms());
    if (waiter == nullptr) {
        return false;
    }
    const bool is_its_turn = Clock::now() >= waiter->since + kTurn;
    if (is_its_turn) {
        Give(*waiter, engine);
    }
    waiter->changed.notify_one();
    return is_its_turn;
}

void IdleList::Add(MemoryEngine& engine) {
    std::optional<IdleEngine> replaced;  // closes without the lock
    const std::lock_guard<std::mutex> lock(mutex_);
    if (is_stopped_ || !is_on_ || engine.get_Round() != round_ || GiveToWaiter(engine)) {
        return;
    }
    idle_.reserve(IdleEngines::get_Most());
    if (!has_thread_) {
        StartThread();
    }
    if (idle_.size() >= IdleEngines::get_Most()) {
        replaced.emplace(std::move(idle_.front()));
        idle_.erase(idle_.begin());
    }
    last_keep_ = Clock::now();
    idle_.push_back({std::move(engine), last_keep_});
}

void IdleList::FinishUse(EngineUse& use) {
    const std::lock_guard<std::mutex> lock(mutex_);
    --running_;
    ++reading_;
    last_finish_ = Clock::now();
    use.state_ = EngineUse::State::finished;
}

void IdleList::EndUse(EngineUse& use) {
    const std::lock_guard<std::mutex> lock(mutex_);
    --(use.state_ == EngineUse::State::running ? running_ : reading_);
    use.state_ = EngineUse::State::none;
    // There may be no engine left to wait for. Whom an idle one can serve was woken for that.
    if (running_ + reading_ < IdleEngines::get_Most()) {
        const auto found = std::find_if(waiters_.begin(), waiters_.end(),
                                        [this](const Waiter* each) { return !HasIdle(each->terms); });
        if (found != waiters_.end()) {
            (*found)->changed.notify_one();
        }
    }
}

void IdleList::List(std::vector<uint64_t>& numbers) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const IdleEngine& each : idle_) {
        numbers.push_back(each.engine.get_Engine()->get_Number());
    }
}

void IdleList::Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!is_stopped_ && (!idle_.empty() || Clock::now() < last_keep_ + idle_time_)) {
        const Clock::time_point end = (idle_.empty() ? last_keep_ : idle_.front().since) + idle_time_;
        if (Clock::now() < end) {
            changed_.wait_until(lock, end);
            continue;
        }
        std::optional<MemoryEngine> expired(std::move(idle_.front().engine));
        idle_.erase(idle_.begin());
        is_closing_ = true;
        lock.unlock();
        expired.reset();
        lock.lock();
        is_closing_ = false;
        closed_.notify_all();
    }
    has_thread_ = false;
    const std::vector<IdleEngine> left = std::exchange(idle_, {});
    lock.unlock();
}

void EngineUse::Finish() noexcept {
    if (state_ == State::running && process_ == getpid()) {
        IdleList::Get().FinishUse(*this);
    }
}

void EngineUse::End() noexcept {
    if (state_ != State::none && process_ == getpid()) {
        IdleList::Get().EndUse(*this);
    }
}

std::optional<MemoryEngine> IdleEngines::Take(const EngineTerms& terms, EngineUse& use) noexcept {
    try {
        while (std::optional<MemoryEngine> engine = IdleList::Get().TakeOne(terms, use)) {
            if (engine->IsUpToDate()) {
                return engine;
            }
        }
    } catch (const std::exception&) {  // No memory for the list.
    }
    return std::nullopt;
}

void IdleEngines::Keep(MemoryEngine engine) noexcept {
    try {
        if (engine.IsAsOpened()) {
            IdleList::Get().Add(engine);
        }
    } catch (const std::exception&) {  // No memory or no thread: the engine closes here.
    }
}

void IdleEngines::CloseAll() noexcept {
    try {
        IdleList::Get().CloseAll();
    } catch (const std::exception&) {  // No memory for the list: it is empty.
    }
}

void IdleEngines::put_IsOn(bool is_on) noexcept {
    try {
        IdleList::Get().put_IsOn(is_on);
        IdleList::Get().CloseAll();
    } catch (const std::exception&) {  // As above.
    }
}

uint64_t IdleEngines::get_Round() {
    return IdleList::Get().get_Round();
}

void IdleEngines::List(std::vector<uint64_t>& numbers) {
    IdleList::Get().List(numbers);
}

void IdleEngines::put_IdleTime(std::chrono::milliseconds time) {
    IdleList::Get().put_IdleTime(time);
}

std::size_t IdleEngines::get_Most() noexcept {
    static const std::size_t most = std::max(1u, std::thread::hardware_concurrency());
    return most;
}

}  // namespace mduckdb
