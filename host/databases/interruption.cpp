#include "databases/interruption.h"

#include <fmt/format.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <system_error>

#include "databases/progress.h"
#include "nbx/hooks.h"
#include "print/output.h"

namespace mduckdb_host {

namespace {

/** Shorter work shows no progress. */
constexpr int kQuietSeconds = 2;
constexpr int kStepMilliseconds = 100;
constexpr std::array<const char*, 10> kSpinner = {"⠋", "⠙", "⠹", "⠸", "⠼", "⠴", "⠦", "⠧", "⠇", "⠏"};
constexpr const char* kClearLine = "\r\x1b[2K";

/** Guards the progress line: nothing may be printed while it is being drawn. */
std::mutex gProgressMutex;

sigset_t MakeInterruptSet() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    return signals;
}

int MakeInterruptDescriptor() {
    const sigset_t signals = MakeInterruptSet();
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "Cannot watch for Ctrl-C");
    }
    return descriptor;
}

int MakeStopDescriptor() {
    const int descriptor = eventfd(0, EFD_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "Cannot watch for Ctrl-C");
    }
    return descriptor;
}

}  // namespace

void BlockInterrupts() {
    const sigset_t signals = MakeInterruptSet();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
}

int get_InterruptDescriptor() {
    static const int kDescriptor = MakeInterruptDescriptor();
    return kDescriptor;
}

bool TakeInterrupt() {
    signalfd_siginfo info{};
    return ::read(get_InterruptDescriptor(), &info, sizeof info) == static_cast<ssize_t>(sizeof info);
}

InterruptWatch::InterruptWatch(std::function<void()> on_interrupt, Describe describe, const char* about_key)
    : on_interrupt_(std::move(on_interrupt)),
      describe_(std::move(describe)),
      about_key_(about_key),
      has_progress_(isatty(STDERR_FILENO) == 1 && isatty(STDOUT_FILENO) == 1 && UnderstandsEscapes()),
      stop_descriptor_(MakeStopDescriptor()) {
    thread_ = std::thread([this] { Run(); });
}

InterruptWatch::InterruptWatch(const DatabasePtr& database)
    : InterruptWatch([database] { database->Interrupt(); },
                     // The database lives longer than the watch.
                     [progress = TrackProgress(database)] {
                         return progress != nullptr ? DescribeProgress(progress->get_Progress())
                                                    : std::string();
                     }) {}

InterruptWatch::~InterruptWatch() {
    const uint64_t one = 1;
    while (::write(stop_descriptor_, &one, sizeof one) < 0 && errno == EINTR) {
    }
    thread_.join();
    ::close(stop_descriptor_);
    EndProgress();
}

void InterruptWatch::EndProgress() {
    const std::lock_guard<std::mutex> lock(gProgressMutex);
    if (has_progress_.exchange(false)) {
        // Harmless if nothing was shown.
        std::fputs(kClearLine, stderr);
        std::fflush(stderr);
    }
}

void InterruptWatch::ShowProgress(int seconds, std::size_t step) {
    const std::lock_guard<std::mutex> lock(gProgressMutex);
    if (!has_progress_) {
        return;
    }
    const std::string detail = describe_ ? describe_() : std::string();
    fmt::print(stderr, "{}{} {} s{}{}", kClearLine, kSpinner[step % kSpinner.size()], seconds,
               detail.empty() ? "" : ", ", detail);
    if (!about_key_.empty()) {
        fmt::print(stderr, "  ({})", about_key_);
    }
    std::fflush(stderr);
}

void InterruptWatch::Run() {
    const auto start = std::chrono::steady_clock::now();
    pollfd descriptors[] = {{get_InterruptDescriptor(), POLLIN, 0}, {stop_descriptor_, POLLIN, 0}};
    for (std::size_t step = 0;; ++step) {
        ::poll(descriptors, 2, has_progress_ ? kStepMilliseconds : -1);
        if ((descriptors[1].revents & POLLIN) != 0) {
            return;
        }
        if ((descriptors[0].revents & POLLIN) != 0 && TakeInterrupt()) {
            is_interrupted_ = true;
            on_interrupt_();
        }
        const auto elapsed = std::chrono::steady_clock::now() - start;
        const auto seconds =
            static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count());
        if (seconds >= kQuietSeconds) {
            ShowProgress(seconds, step);
        }
    }
}

}  // namespace mduckdb_host
