#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "base/text.h"
#include "engines/handle_registry.h"
#include "nbx/file.h"
#include "objects/database.h"
#include "objects/idle_engine_lock.h"

namespace mduckdb {

namespace {

std::string CannotDrop(const std::string& reason) {
    return "Can not be dropped. " + reason;
}

}  // namespace

void DuckDBDatabase::Close() {
    if (!is_open_.load()) {
        return;
    }
    const IdleEngineLockScope lock(export_gate_, *link_);
    CloseLocked();
}

void DuckDBDatabase::CloseLocked() noexcept {
    if (!engine_) {
        return;
    }
    if (get_IsInTransaction()) {
        lost_transactions_.fetch_add(1);
    }
    link_->get_Census().Leave();
    link_->get_Children().CloseAll();
    link_->Disconnect();
    is_read_only_.store(false);
    are_options_given_ = are_options_new_ = false;
    is_open_.store(false);
    GiveUpEngine(*engine_);
    engine_.reset();
    HandleRegistry::Get().RemoveUser(open_key_);
    open_key_.clear();
}

void DuckDBDatabase::CloseToReopen() noexcept {
    const bool are_new = are_options_new_;
    CloseLocked();
    are_options_given_ = are_options_given_ || are_new;
}

void DuckDBDatabase::Drop() {
    const IdleEngineLockScope lock(export_gate_, *link_);
    CloseLocked();
    FileTurn turn = TakeTurn(true);
    DropLocked(turn);
}

void DuckDBDatabase::DropLocked(FileTurn& turn) {
    ThrowIfUsed(turn);
    if (!IsInMemory()) {
        DeleteFile(turn);
    }
}

void DuckDBDatabase::ThrowIfUsed(const FileTurn& turn) const {
    // The registry also counts users without a file of their own.
    const uint32_t registered = HandleRegistry::Get().get_UserCount(location_->get_PathText());
    if (const uint32_t count = std::max(turn.get_UserCount(), registered)) {
        ThrowError(CannotDrop(std::to_string(count) + " connections are alive."));
    }
    if (turn.IsOpenByOtherMeans()) {
        ThrowError(CannotDrop("This process has the file open by other means, for example by ATTACH."));
    }
}

void DuckDBDatabase::DeleteFile(FileTurn& turn) {
    const auto file = nbx::CreateFile(location_);
    file->Open();
    file->Close();
    FileLock lock;
    std::string reason;
    if (!lock.Take(turn.get_Look(), reason)) {
        ThrowError(CannotDrop(reason));
    }
    turn.ClaimPlace();
    // A symbolic link stays; the database that it points to is deleted, even if no text can hold its name.
    const std::string& target = turn.get_Look().path;
    const LogNames log(target);
    if (target == ToPath(path_)) {
        file->ThrowOut();
    } else if (unlink(target.c_str()) != 0) {
        ThrowError(CannotDrop(std::string("The file cannot be deleted: ") + std::strerror(errno) + "."));
    }
    // The log goes after the file: a log without its file is worthless, but a file without its log has lost
    // rows.
    const int error = log.Delete();
    turn.MarkDeleted();
    if (error != 0) {
        ThrowError(std::string("The file is deleted, but not its log: ") + std::strerror(error) + ".");
    }
}

}  // namespace mduckdb
