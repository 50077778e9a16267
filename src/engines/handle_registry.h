#pragma once

#include <cstdint>
#include <map>

#include "base/engine_lock.h"
#include "nbx/string.h"

namespace mduckdb {

/** Which paths this module has open as databases, and how many database objects there are for each. An entry
    lives for as long as it has users. `EngineFiles`, which knows files and not paths, decides who shares an
    engine. */
class HandleRegistry : nbx::noncopyable {
  public:
    static HandleRegistry& Get();

    bool Contains(const nbx::String& key) const NBX_REQUIRES(gEngineLock);
    uint32_t get_UserCount(const nbx::String& key) const NBX_REQUIRES(gEngineLock);
    /** Strong guarantee. */
    void AddUser(const nbx::String& key) NBX_REQUIRES(gEngineLock);
    void RemoveUser(const nbx::String& key) noexcept NBX_REQUIRES(gEngineLock);

  private:
    // Ordered, since a host string offers an order and no hash.
    std::map<nbx::String, uint32_t> users_ NBX_GUARDED_BY(gEngineLock);
};

}  // namespace mduckdb
