#include "base/server_waits.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <exception>
#include <optional>
#include <utility>

#include "base/descriptor.h"
#include "base/thread_facts.h"
#include "base/uploads.h"

namespace mduckdb {
namespace {

/** A server that answers within this time is not silent. */
constexpr std::chrono::milliseconds kPatience{50};
/** libcurl waits at most a second at a time, for its sockets and for the descriptor that wakes it. This tells
   it from other clients, above all from libpq, which waits for one socket without an end: a transaction whose
    COMMIT was sent must not lose its answer. */
constexpr int kLongestSlice = 1000;
constexpr uint64_t kFewestDescriptors = 2;
constexpr uint64_t kMostDescriptors = 16;

using Descriptors = std::array<pollfd, kMostDescriptors>;

/** That a thread waits, and for what: for descriptors, or without any for another thread. */
struct Wait {
    SystemCall call;
    uint64_t switches = 0;
    uint64_t count = 0;
    Descriptors descriptors{};
};

/** In milliseconds; negative when it is unlimited or unknown. */
int64_t ReadTimeout(uint64_t call, uint64_t argument) noexcept {
    if (call != SYS_ppoll) {
        return static_cast<int32_t>(argument);
    }
    timespec time{};
    if (argument == 0 || !CopyMemory(argument, &time, sizeof time)) {
        return -1;
    }
    constexpr int kThousand = 1000;
    constexpr int kMillion = 1000 * 1000;
    return static_cast<int64_t>(time.tv_sec) * kThousand + (time.tv_nsec + kMillion - 1) / kMillion;
}

bool IsPoll(uint64_t call) noexcept {
#ifdef SYS_poll
    if (call == SYS_poll) {
        return true;
    }
#endif
    return call == SYS_ppoll;
}

/** The descriptors, if the thread waits for them as libcurl does. */
bool FindDescriptors(Wait& out_wait) noexcept {
    const SystemCall& call = out_wait.call;
    const uint64_t count = call.arguments[1];
    if (!IsPoll(call.number) || count < kFewestDescriptors || count > kMostDescriptors) {
        return false;
    }
    const int64_t milliseconds = ReadTimeout(call.number, call.arguments[2]);
    out_wait.count = count;
    return milliseconds > 0 && milliseconds <= kLongestSlice &&
           CopyMemory(call.arguments[0], out_wait.descriptors.data(), count * sizeof(pollfd));
}

/** What the thread waits for, if it waits as libcurl does or for another thread. The number of switches is
    read last: a wait that goes on later with the same number is this one. */
std::optional<Wait> FindWait(pid_t thread) noexcept {
    const std::optional<SystemCall> call = ReadSystemCall(thread);
    if (!call) {
        return std::nullopt;
    }
    Wait wait{*call};
    if (call->number != SYS_futex && !FindDescriptors(wait)) {
        return std::nullopt;
    }
    const std::optional<uint64_t> switches = ReadSwitches(thread);
    if (!switches) {
        return std::nullopt;
    }
    wait.switches = *switches;
    return wait;
}

/** A wait that has gone on since it was seen before. */
struct LongWait {
    pid_t thread;
    Wait wait;
    bool GoesOn() const noexcept {
        const std::optional<Wait> now = FindWait(thread);
        return now && now->switches == wait.switches;
    }
};

bool IsTcpSocket(int descriptor) noexcept {
    int domain = 0;
    int type = 0;
    socklen_t size = sizeof domain;
    return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 &&
           getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM &&
           (domain == AF_INET || domain == AF_INET6);
}

/** Shuts down the sockets of a wait that goes on, if the owner's wait goes on, too. */
void ShutDown(const LongWait& waiter, const LongWait& owner) noexcept {
    for (uint64_t i = 0; i < waiter.wait.count; ++i) {
        // The number may belong to another file soon; the duplicate does not.
        const Descriptor socket(fcntl(waiter.wait.descriptors[i].fd, F_DUPFD_CLOEXEC, 0));
        if (socket.get() < 0 || !IsTcpSocket(socket.get())) {
            continue;
        }
        if (!waiter.GoesOn() || !owner.GoesOn()) {
            return;
        }
        shutdown(socket.get(), SHUT_RDWR);
    }
}

/** Shuts down the sockets of the threads that send parts of the upload for which the owner waits; false if it
   waits for something else. */
bool ShutDownUpload(const LongWait& owner) noexcept {
    const uint64_t upload = FindUpload(owner.wait.call.arguments[0]);
    if (upload == 0) {
        return false;
    }
    for (const pid_t thread : ListThreads()) {
        const std::optional<Wait> seen = FindWait(thread);
        const std::optional<Wait> wait = FindWait(thread);
        const bool is_long = seen && wait && wait->switches == seen->switches;
        if (is_long && wait->count > 0 && SendsPartOf(upload, thread, wait->call)) {
            ShutDown({thread, *wait}, owner);
        }
    }
    return true;
}

}  // namespace

std::vector<ServerWaits::Thread>::iterator ServerWaits::Find(pid_t number) {
    return std::find_if(threads_.begin(), threads_.end(),
                        [number](const Thread& thread) { return thread.number == number; });
}

void ServerWaits::Enter() noexcept {
    const pid_t number = gettid();
    const nbx::MutexLock lock(mutex_);
    if (const auto found = Find(number); found != threads_.end()) {
        ++found->depth;
        return;
    }
    try {
        threads_.push_back({number, 1, 0, {}});
    } catch (const std::exception&) {
        // An unknown thread is waited for until the client's time is over.
    }
}

void ServerWaits::Leave() noexcept {
    const pid_t number = gettid();
    const nbx::MutexLock lock(mutex_);
    if (const auto found = Find(number); found != threads_.end() && --found->depth == 0) {
        *found = threads_.back();
        threads_.pop_back();
    }
}

void ServerWaits::EndOnce() noexcept {
    const nbx::MutexLock lock(mutex_);
    for (Thread& thread : threads_) {
        const std::optional<Wait> wait = FindWait(thread.number);
        const auto now = Deadline::Clock::now();
        if (!wait || wait->switches != thread.switches) {
            thread.switches = wait ? wait->switches : 0;
            thread.since = now;
        } else if (is_silent_ || now - thread.since >= kPatience) {
            const LongWait owner{thread.number, *wait};
            if (wait->count == 0) {
                is_silent_ = ShutDownUpload(owner) || is_silent_;
            } else {
                ShutDown(owner, owner);
                is_silent_ = true;
            }
        }
    }
}

void ServerWaits::End() noexcept {
    const nbx::MutexLock lock(mutex_);
    if (works_ == 0 || repeat_) {
        return;
    }
    try {
        repeat_ = std::make_unique<Deadline>(
            Deadline::Clock::now(), [](void* waits) noexcept { static_cast<ServerWaits*>(waits)->EndOnce(); },
            this);
    } catch (const std::exception&) {
        // The client's own time ends what waits.
    }
}

std::atomic<bool> ServerWaits::gHasClients{false};
constinit thread_local ServerWaits::Work* ServerWaits::gCurrent = nullptr;

void ServerWaits::NoteClient() noexcept {
    gHasClients.store(true);
    if (gCurrent != nullptr) {
        std::exchange(gCurrent, nullptr)->Begin();
    }
}

void ServerWaits::Work::Begin() noexcept {
    has_begun_ = true;
    waits_.Enter();
    {
        const nbx::MutexLock lock(waits_.mutex_);
        ++waits_.works_;
        waits_.is_silent_ = false;
    }
    if (is_interrupted_.load()) {
        waits_.End();
    }
}

void ServerWaits::Work::End() noexcept {
    waits_.Leave();
    std::unique_ptr<Deadline> ended;
    const nbx::MutexLock lock(waits_.mutex_);
    if (--waits_.works_ == 0) {
        ended = std::move(waits_.repeat_);
    }
}

}  // namespace mduckdb
