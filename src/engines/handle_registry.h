#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "base/engine_lock.h"
#include "engines/engine.h"
#include "nbx/string.h"

namespace mduckdb {

/** Which paths this process has open as databases: for each its writing engine, shared by all who open
    it, and how many users there are. An entry lives for as long as it has users. */
class HandleRegistry : nbx::noncopyable {
  public:
    static HandleRegistry& Get();

    bool Contains(const nbx::String& key) const NBX_REQUIRES(gEngineLock);
    uint32_t get_UserCount(const nbx::String& key) const NBX_REQUIRES(gEngineLock);
    /** The engine that users of the key share, or null. */
    SharedEngine get_Shared(const nbx::String& key) const NBX_REQUIRES(gEngineLock);
    /** Retires the shared engine, which an internal error has ended: its users keep it until they close, and
        the next user opens a new one. */
    void RetireShared(const nbx::String& key) NBX_REQUIRES(gEngineLock);
    /** Enters one more user of an engine, which becomes the shared one if it writes. Strong guarantee. */
    void AddUser(const nbx::String& key, const SharedEngine& engine) NBX_REQUIRES(gEngineLock);
    /** Takes one user away, whose connection is closed. The last one closes every engine of the key; one
        that reads through an engine of its own gives that up at once. */
    void RemoveUser(const nbx::String& key, const SharedEngine& engine) noexcept NBX_REQUIRES(gEngineLock);

  private:
    struct Entry {
        SharedEngine engine;
        uint32_t users = 0;
        std::vector<SharedEngine> retired;
    };

    // Ordered, since a host string offers an order and no hash.
    std::map<nbx::String, Entry> entries_ NBX_GUARDED_BY(gEngineLock);
};

}  // namespace mduckdb
