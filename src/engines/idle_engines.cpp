#include "engines/idle_engines.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "base/own_thread.h"

namespace mduckdb {

namespace {

using Clock = std::chrono::steady_clock;

struct IdleEngine {
    MemoryEngine engine;
    Clock::time_point since;
};

/** The list of a process. Never destroyed, because calls may end while static objects are destroyed. */
class IdleList : nbx::noncopyable {
  public:
    /** Throws `std::bad_alloc`, but not in the process that has loaded the library. */
    static IdleList& Get();

    std::optional<MemoryEngine> TakeOne(const EngineTerms& terms);
    /** Takes the engine over, or leaves it if it is not wanted. */
    void Add(MemoryEngine& engine);
    void CloseAll();
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

    static std::atomic<IdleList*> gInstance;

    const pid_t process_ = getpid();
    std::mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable closed_;
    /** In the order in which they were added. */
    std::vector<IdleEngine> idle_;
    /** Begins differently in each process, so that a child of a fork does not keep an engine of its parent.
     */
    std::atomic<uint64_t> round_{static_cast<uint64_t>(process_) << 32};
    std::chrono::milliseconds idle_time_{5000};
    std::thread thread_;
    bool has_thread_ = false;
    /** The thread closes an engine now. */
    bool is_closing_ = false;
    std::atomic<bool> is_on_{true};
    bool is_stopped_ = false;
};

std::atomic<IdleList*> IdleList::gInstance{nullptr};

IdleList& IdleList::Get() {
    // Not on the heap, where it would be left behind when the library is unloaded.
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
    list->CloseAll();
    if (list->thread_.joinable()) {
        list->thread_.join();
    }
}

std::vector<IdleEngine> IdleList::TakeAll() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++round_;
    closed_.wait(lock, [this] { return !is_closing_; });
    return std::exchange(idle_, {});
}

void IdleList::CloseAll() {
    TakeAll();
    changed_.notify_all();
}

std::optional<MemoryEngine> IdleList::TakeOne(const EngineTerms& terms) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = std::find_if(idle_.rbegin(), idle_.rend(),
                                    [&](const IdleEngine& each) { return each.engine.get_Terms() == terms; });
    if (found == idle_.rend()) {
        return std::nullopt;
    }
    std::optional<MemoryEngine> taken(std::move(found->engine));
    idle_.erase(std::next(found).base());
    return taken;
}

void IdleList::Add(MemoryEngine& engine) {
    std::optional<IdleEngine> replaced;  // closes without the lock
    const std::lock_guard<std::mutex> lock(mutex_);
    if (is_stopped_ || !is_on_ || engine.get_Round() != round_) {
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
    idle_.push_back({std::move(engine), Clock::now()});
}

void IdleList::List(std::vector<uint64_t>& numbers) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const IdleEngine& each : idle_) {
        numbers.push_back(each.engine.get_Engine()->get_Number());
    }
}

void IdleList::Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!is_stopped_ && !idle_.empty()) {
        const Clock::time_point end = idle_.front().since + idle_time_;
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
}

}  // namespace

std::optional<MemoryEngine> IdleEngines::Take(const EngineTerms& terms) noexcept {
    try {
        while (std::optional<MemoryEngine> engine = IdleList::Get().TakeOne(terms)) {
            if (engine->IsUpToDate()) {
                return engine;
            }
        }
    } catch (const std::exception&) {  // No memory for the list: it is empty.
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
