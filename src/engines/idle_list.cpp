#include "engines/idle_list.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "base/own_thread.h"

namespace mduckdb {

namespace {

/** About twice as long as an opening takes where nothing else runs. */
constexpr std::chrono::milliseconds kPatience{20};
/** A thread that calls again at once keeps its engine, without a switch of threads, until another call
    has waited for this long. */
constexpr std::chrono::milliseconds kTurn{5};
/** Most hosts close the cursor of a small result within this time. */
constexpr std::chrono::milliseconds kReadingTime{5};

}  // namespace

/** A call that waits for an engine. */
struct IdleList::Waiter {
    const EngineTerms& terms;
    const Clock::time_point since = Clock::now();
    std::optional<MemoryEngine> given;
    std::condition_variable changed;

    explicit Waiter(const EngineTerms& wanted) : terms(wanted) {}
};

std::atomic<IdleList*> IdleList::gInstance{nullptr};

IdleList& IdleList::Get() {
    // Not on the heap: it is never deleted.
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

std::vector<IdleList::IdleEngine> IdleList::TakeAll() {
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

IdleList::Clock::time_point IdleList::get_HopeEnd(Clock::time_point begin) const {
    const std::size_t most = get_Most();
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

IdleList::Waiter* IdleList::FindWaiter(const EngineTerms& terms) {
    const auto found = std::find_if(waiters_.begin(), waiters_.end(),
                                    [&](const Waiter* each) { return each->terms == terms; });
    return found == waiters_.end() ? nullptr : *found;
}

void IdleList::Give(Waiter& waiter, MemoryEngine& engine) {
    std::erase(waiters_, &waiter);
    // Counted from here on, so that no other call considers the engine free.
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
    idle_.reserve(get_Most());
    if (!has_thread_) {
        StartThread();
    }
    if (idle_.size() >= get_Most()) {
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
    if (running_ + reading_ < get_Most()) {
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

std::size_t IdleList::get_Most() noexcept {
    static const std::size_t most = std::max(1u, std::thread::hardware_concurrency());
    return most;
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

}  // namespace mduckdb
