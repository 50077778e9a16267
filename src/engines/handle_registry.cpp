#include "engines/handle_registry.h"

#include <utility>

namespace mduckdb {

HandleRegistry& HandleRegistry::Get() {
    // Never destroyed: a host may release its last database while static objects are being destroyed.
    static auto* registry = new HandleRegistry;
    return *registry;
}

bool HandleRegistry::Contains(const nbx::String& key) const {
    return entries_.find(key) != entries_.end();
}

uint32_t HandleRegistry::get_UserCount(const nbx::String& key) const {
    const auto entry = entries_.find(key);
    return entry == entries_.end() ? 0 : entry->second.users;
}

SharedEngine HandleRegistry::get_Shared(const nbx::String& key) const {
    const auto found = entries_.find(key);
    return found == entries_.end() ? nullptr : found->second.engine;
}

void HandleRegistry::RetireShared(const nbx::String& key) {
    Entry& entry = entries_.at(key);
    entry.retired.push_back(entry.engine);
    RetireEngine(*std::exchange(entry.engine, nullptr));
}

void HandleRegistry::AddUser(const nbx::String& key, const SharedEngine& engine) {
    Entry& entry = entries_[key];
    if (engine->access == Engine::Access::writing) {
        entry.engine = engine;
    }
    ++entry.users;
}

void HandleRegistry::RemoveUser(const nbx::String& key, const SharedEngine& engine) noexcept {
    const auto found = entries_.find(key);
    Entry& entry = found->second;
    if (engine->access == Engine::Access::reading) {
        GiveUpEngine(*engine);
    }
    if (--entry.users > 0) {
        return;
    }
    if (entry.engine) {
        GiveUpEngine(*entry.engine);
    }
    for (const SharedEngine& retired : entry.retired) {
        GiveUpEngine(*retired);
    }
    entries_.erase(found);
}

}  // namespace mduckdb
