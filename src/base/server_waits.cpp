#include "base/server_waits.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <optional>
#include <string_view>
#include <utility>

#include "base/descriptor.h"

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

/** That a thread waits, and for what. */
struct Wait {
    uint64_t switches = 0;
    uint64_t count = 0;
    Descriptors descriptors{};
};

/** The beginning of a file in the folder of a thread of this process; empty on failure. */
template <std::size_t size>
std::string_view ReadFact(pid_t thread, const char* name, std::array<char, size>& buffer) noexcept {
    std::array<char, 64> path{};
    snprintf(path.data(), path.size(), "/proc/self/task/%d/%s", static_cast<int>(thread), name);
    const Descriptor file(open(path.data(), O_RDONLY | O_CLOEXEC));
    const ssize_t length = file.get() < 0 ? -1 : pread(file.get(), buffer.data(), buffer.size() - 1, 0);
    const std::size_t end = length < 0 ? 0 : static_cast<std::size_t>(length);
    buffer[end] = '\0';
    return {buffer.data(), end};
}

/** Takes the number at the beginning of the text, and the blanks before it; 0x begins a hexadecimal one. The
    table of `std::from_chars` for other bases than 10 would keep a library from being unloaded. */
std::optional<uint64_t> TakeNumber(std::string_view& text) noexcept {
    constexpr std::string_view kDigits = "0123456789abcdef";
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    const bool is_hexadecimal = text.starts_with("0x");
    text.remove_prefix(is_hexadecimal ? 2 : 0);
    const std::string_view digits = kDigits.substr(0, is_hexadecimal ? 16 : 10);
    const std::string_view number = text.substr(0, text.find_first_not_of(digits));
    if (number.empty()) {
        return std::nullopt;
    }
    uint64_t value = 0;
    for (const char digit : number) {
        value = value * digits.size() + digits.find(digit);
    }
    text.remove_prefix(number.size());
    return value;
}

/** How often the thread has stopped running. */
std::optional<uint64_t> ReadSwitches(pid_t thread) noexcept {
    std::array<char, 8192> buffer{};
    const std::string_view status = ReadFact(thread, "status", buffer);
    uint64_t sum = 0;
    for (const std::string_view name : {"\nvoluntary_ctxt_switches:", "\nnonvoluntary_ctxt_switches:"}) {
        const std::size_t place = status.find(name);
        if (place == status.npos) {
            return std::nullopt;
        }
        std::string_view rest = status.substr(place + name.size());
        const std::optional<uint64_t> count = TakeNumber(rest);
        if (!count) {
            return std::nullopt;
        }
        sum += *count;
    }
    return sum;
}

/** Copies memory of this process that another thread may release meanwhile. */
bool CopyMemory(uint64_t address, void* to, std::size_t size) noexcept {
    const Descriptor memory(open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
    return memory.get() >= 0 &&
           pread(memory.get(), to, size, static_cast<off_t>(address)) == static_cast<ssize_t>(size);
}

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

/** What the thread waits for, if it waits as libcurl does. The number of switches is read last: a wait that
    goes on later with the same number is this one. */
std::optional<Wait> FindWait(pid_t thread) noexcept {
    std::array<char, 256> buffer{};
    // The call and its arguments; "running" for a thread that does not wait.
    std::string_view text = ReadFact(thread, "syscall", buffer);
    const std::optional<uint64_t> call = TakeNumber(text);
    const std::optional<uint64_t> address = TakeNumber(text);
    const std::optional<uint64_t> count = TakeNumber(text);
    const std::optional<uint64_t> timeout = TakeNumber(text);
    if (!call || !IsPoll(*call) || !address || !count || !timeout || *count < kFewestDescriptors ||
        *count > kMostDescriptors) {
        return std::nullopt;
    }
    const int64_t milliseconds = ReadTimeout(*call, *timeout);
    Wait wait;
    wait.count = *count;
    if (milliseconds <= 0 || milliseconds > kLongestSlice ||
        !CopyMemory(*address, wait.descriptors.data(), wait.count * sizeof(pollfd))) {
        return std::nullopt;
    }
    const std::optional<uint64_t> switches = ReadSwitches(thread);
    if (!switches) {
        return std::nullopt;
    }
    wait.switches = *switches;
    return wait;
}

bool IsTcpSocket(int descriptor) noexcept {
    int domain = 0;
    int type = 0;
    socklen_t size = sizeof domain;
    return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 &&
           getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM &&
           (domain == AF_INET || domain == AF_INET6);
}

/** Shuts down the sockets of a wait that goes on. */
void ShutDown(pid_t thread, const Wait& wait) noexcept {
    for (uint64_t i = 0; i < wait.count; ++i) {
        // The number may belong to another file soon; the duplicate does not.
        const Descriptor socket(fcntl(wait.descriptors[i].fd, F_DUPFD_CLOEXEC, 0));
        if (socket.get() < 0 || !IsTcpSocket(socket.get())) {
            continue;
        }
        const std::optional<Wait> now = FindWait(thread);
        if (!now || now->switches != wait.switches) {
            return;
        }
        shutdown(socket.get(), SHUT_RDWR);
    }
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
            ShutDown(thread.number, *wait);
            is_silent_ = true;
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
