#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "databases/databases.h"

namespace mduckdb_host {

/** Takes Ctrl-C away from this thread and from those that it makes from now on, and lets the module
    interrupt. Call before the first database is opened, since DuckDB makes threads. From then on a
    Ctrl-C waits for an `InterruptWatch` or for whoever reads `get_InterruptDescriptor`. */
void BlockInterrupts();

/** Readable while a Ctrl-C waits. */
int get_InterruptDescriptor();
/** Forgets the Ctrl-C that waits; tells whether there was one. */
bool TakeInterrupt();

/** Watches for Ctrl-C while something runs, and shows on a terminal that it is still running. Calls back on
    a thread of its own, at every Ctrl-C; the destructor waits for that thread. */
class InterruptWatch {
  public:
    /** What the line of progress says behind the seconds; may be empty. */
    using Describe = std::function<std::string()>;

    /** What the line of progress says of the key where it ends what runs. */
    static constexpr const char* kInterrupts = "Ctrl-C interrupts";

    /** `about_key` is what the line says of the key; empty where it does nothing. */
    explicit InterruptWatch(std::function<void()> on_interrupt, Describe describe = nullptr,
                            const char* about_key = kInterrupts);
    /** Interrupts what the database runs. */
    explicit InterruptWatch(const DatabasePtr& database);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    bool get_IsInterrupted() const noexcept { return is_interrupted_.load(); }
    /** Takes the line of progress away; call before anything is printed. */
    void EndProgress();

  private:
    void Run();
    void ShowProgress(int seconds, std::size_t step);

    std::function<void()> on_interrupt_;
    Describe describe_;
    std::string about_key_;
    std::atomic<bool> is_interrupted_{false};
    std::atomic<bool> has_progress_;
    int stop_descriptor_;
    std::thread thread_;
};

}  // namespace mduckdb_host
