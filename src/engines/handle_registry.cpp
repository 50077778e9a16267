#include "engines/handle_registry.h"

namespace mduckdb {

HandleRegistry& HandleRegistry::Get() {
    // Never destroyed: a host may release its last database while static objects are being destroyed.
    static auto* registry = new HandleRegistry;
    return *registry;
}

bool HandleRegistry::Contains(const nbx::String& key) const {
    return users_.find(key) != users_.end();
}

uint32_t HandleRegistry::get_UserCount(const nbx::String& key) const {
    const auto entry = users_.find(key);
    return entry == users_.end() ? 0 : entry->second;
}

void HandleRegistry::AddUser(const nbx::String& key) {
    ++users_[key];
}

void HandleRegistry::RemoveUser(const nbx::String& key) noexcept {
    const auto entry = users_.find(key);
    if (--entry->second == 0) {
        users_.erase(entry);
    }
}

}  // namespace mduckdb
