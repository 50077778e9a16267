#include <utility>

#include "base/text.h"
#include "engines/handle_registry.h"
#include "nbx/file.h"
#include "objects/database.h"

namespace mduckdb {

void DuckDBDatabase::Close() {
    if (!is_open_.load()) {
        return;
    }
    const IdleEngineLockScope lock(export_gate_);
    CloseLocked();
}

void DuckDBDatabase::CloseLocked() noexcept {
    if (!engine_) {
        return;
    }
    if (get_IsInTransaction()) {
        lost_transactions_.fetch_add(1);
    }
    link_->get_Children().CloseAll();
    link_->Disconnect();
    is_read_only_.store(false);
    are_options_given_ = false;
    is_open_.store(false);
    const SharedEngine engine = std::move(engine_);
    HandleRegistry::Get().RemoveUser(open_key_, engine);
    open_key_.clear();
}

void DuckDBDatabase::Drop() {
    const IdleEngineLockScope lock(export_gate_);
    CloseLocked();
    DropLocked();
}

void DuckDBDatabase::DropLocked() {
    if (const uint32_t count = HandleRegistry::Get().get_UserCount(location_->get_PathText())) {
        ThrowError("Can not be dropped. " + std::to_string(count) + " connections are alive.");
    }
    if (IsInMemory()) {
        return;
    }
    EngineFiles::Get().CloseIdle(ToUtf8(path_));
    const auto file = nbx::CreateFile(location_);
    file->Open();
    file->Close();
    file->ThrowOut();
}

}  // namespace mduckdb
