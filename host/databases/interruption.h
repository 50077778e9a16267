#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "databases/databases.h"

namespace mduckdb_host {

/** The module's code for an interruption, used for one that arrives while rows are printed. */
constexpr uint32_t kInterruptCode = 0x57501;

/** Blocks Ctrl-C in this thread and in those that it creates from now on, and allows the module to interrupt.
    Call it before the first database is opened, since DuckDB creates threads. From then on a Ctrl-C waits for
    an `InterruptWatch` or for a reader of `get_InterruptDescriptor`. */
void BlockInterrupts();

/** Readable while a Ctrl-C is pending. */
int get_InterruptDescriptor();
/** Consumes the pending Ctrl-C; returns whether there was one. */
bool TakeInterrupt();

/** Watches for Ctrl-C while something runs, and shows progress on a terminal. Calls back at every Ctrl-C on a
    thread of its own; the destructor waits for that thread. */
class InterruptWatch {
  public:
    /** The detail that the progress line shows behind the seconds; may be empty. */
    using Describe = std::function<std::string()>;

    /** The progress line's hint when Ctrl-C interrupts the work. */
    static constexpr const char* kInterrupts = "Ctrl-C interrupts";

    /** `about_key` is the progress line's hint about Ctrl-C; empty when the key does nothing. */
    explicit InterruptWatch(std::function<void()> on_interrupt, Describe describe = nullptr,
                            const char* about_key = kInterrupts);
    /** Interrupts the database, and shows how far its statement is. */
    explicit InterruptWatch(const DatabasePtr& database);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    bool get_IsInterrupted() const noexcept { return is_interrupted_.load(); }
    /** Removes the progress line; call it before anything is printed. */
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
