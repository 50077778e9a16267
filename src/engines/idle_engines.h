#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "engines/engine_use.h"
#include "engines/memory_engine.h"

namespace mduckdb {

/** The engines without a file that wait for their next call: at most one a core. An engine that nobody takes
    for some seconds is closed by a thread, which exists for as long after the last call. When the
    process exits, the thread ends and the engines close. A child of a fork starts
    with none: its parent's engines have no threads there.

    From any thread. The list's mutex is not held while an engine opens or closes. */
class IdleEngines {
  public:
    /** An engine that was opened on the terms and is as a new one would be, or nothing: then the call opens
        its own. The one that was used last is taken first. If as many calls as there are cores are at work,
        this waits for the engine of one of them, but hardly longer than an opening takes. Those who wait for
        some milliseconds are served in turn. Begins the use in any case. */
    static std::optional<MemoryEngine> Take(const EngineTerms& terms, EngineUse& use) noexcept;
    /** Keeps the engine if it can serve another call; otherwise closes it. Nobody is connected to it. */
    static void Keep(MemoryEngine engine) noexcept;
    /** Closes the idle engines. Those that were opened before and are in use now close after their call. */
    static void CloseAll() noexcept;
    /** Whether engines are kept at all, which they are at first. Also closes them all. */
    static void put_IsOn(bool is_on) noexcept;
    /** A number that `CloseAll` changes. Throws `std::bad_alloc`. */
    static uint64_t get_Round();
    /** Adds the numbers of the idle engines in the census. Throws `std::bad_alloc`. */
    static void List(std::vector<uint64_t>& numbers);

    /** For tests. */
    static void put_IdleTime(std::chrono::milliseconds time);
    static std::size_t get_Most() noexcept;
};

}  // namespace mduckdb
