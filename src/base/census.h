#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "nbx/engine_lock.h"
#include "nbx/mrsql/duckdb_census.h"

namespace mduckdb {

using CensusLine = nbx::mrsql::DuckDBCensusLine;

/** Milliseconds of the system's monotonic clock, to a few milliseconds. */
int64_t NowMs() noexcept;

/** An entry of the module's list of what is open: a member of the object that it describes.

    The list has its own mutex, which is held for a few instructions, so that a census waits neither for the
    engine lock nor for DuckDB. Fields that may change are atomic. */
class CensusEntry : nbx::noncopyable {
  public:
    /** Not listed yet. Possible secrets are removed from `name`. Throws `std::bad_alloc`. */
    CensusEntry(CensusLine::Kind kind, uint64_t parent, const std::string& name = {});
    ~CensusEntry() { Leave(); }

    /** Lists the object, whose construction is complete. Its age counts from here. */
    void Enter() noexcept;
    /** Removes it from the list; does nothing if it is not listed. */
    void Leave() noexcept;

    uint64_t get_Number() const noexcept { return number_; }
    void put_Parent(uint64_t number) noexcept { parent_.store(number, std::memory_order_relaxed); }
    void put_Size(int64_t rows, int64_t bytes) noexcept {
        rows_.store(rows, std::memory_order_relaxed);
        bytes_.store(bytes, std::memory_order_relaxed);
    }
    void put_Flag(CensusLine::Flags flag, bool value) noexcept;
    void BeginRunning() noexcept { running_since_.store(NowMs(), std::memory_order_relaxed); }
    bool get_IsRunning() const noexcept {
        return running_since_.load(std::memory_order_relaxed) != kNotRunning;
    }
    void EndRunning() noexcept { running_since_.store(kNotRunning, std::memory_order_relaxed); }

    /** Everything that is listed, in the order in which it was listed. Throws `std::bad_alloc`. */
    static void List(std::vector<CensusLine>& lines);

  private:
    static constexpr int64_t kNotRunning = -1;

    CensusLine MakeLine(int64_t now) const;

    const CensusLine::Kind kind_;
    const nbx::String name_;
    const uint64_t number_;
    std::atomic<uint64_t> parent_;
    std::atomic<int64_t> begun_{0};
    std::atomic<int64_t> running_since_{kNotRunning};
    std::atomic<int64_t> rows_{-1};
    std::atomic<int64_t> bytes_{-1};
    std::atomic<uint32_t> flags_{0};
    // Links of the list, which its mutex guards.
    CensusEntry* next_ = nullptr;
    CensusEntry* previous_ = nullptr;
};

/** The text without possible secrets: the user before the host of a URL, and everything from the first
    question mark on in a text that begins with a scheme. */
std::string WithoutSecrets(const std::string& path);

}  // namespace mduckdb
