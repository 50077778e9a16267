#include "extension/restored_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "base/descriptor.h"
#include "base/folders.h"
#include "base/open_duckdb.h"
#include "engines/configuration.h"

namespace mduckdb {

namespace {

constexpr mode_t kAllRights = 07777;

[[noreturn]] void Fail(const std::string& what, int error_number) {
    throw std::runtime_error(what + ": " + std::strerror(error_number));
}

[[noreturn]] void RefuseReplacement(const std::string& reason) {
    throw std::runtime_error("Can not be dropped. " + reason);
}

/** Opens the database and closes it, which writes its log into it unless DuckDB cannot read the log. */
void FoldLog(const std::string& path) {
    Configuration configuration;
    configuration.SetAccessMode("READ_WRITE");
    duckdb_database engine = nullptr;
    static_cast<void>(OpenDuckDB(path.c_str(), &engine, configuration.get(), nullptr));
    duckdb_close(&engine);
}

bool IsSameLog(const FileStamp& one, const FileStamp& other) {
    return one[2] == other[2] && one[3] == other[3];
}

/** Makes the rename durable: names are stored in the folder. */
void FlushFolder(const std::string& folder) noexcept {
    const Descriptor opened(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.get() >= 0) {
        fsync(opened.get());
    }
}

bool IsTaken(const std::string& name) {
    struct stat info {};
    return lstat(name.c_str(), &info) == 0;
}

/** A name next to the file that neither a file nor a log has. */
std::string NameForUnreadable(const std::string& path) {
    std::string name = path + ".unreadable";
    for (int i = 2; IsTaken(name) || HasLog(name); ++i) {
        name = path + ".unreadable-" + std::to_string(i);
    }
    return name;
}

}  // namespace

RestoredFile::RestoredFile(const std::string& path)
    : target_(FileSystem::Get().Look(path).path),
      folder_(target_),
      path_(folder_ / path.substr(path.rfind('/') + 1)) {}

void RestoredFile::LimitRights(const std::string& model) {
    struct stat info {};
    if (stat(model.c_str(), &info) == 0) {
        most_rights_ &= info.st_mode;
    }
}

void RestoredFile::CheckTarget(const FileTurn& turn) {
    FileLock lock;
    std::string reason;
    if (turn.get_Exists() && !lock.Take(turn.get_Look(), reason)) {
        RefuseReplacement(reason);
    }
}

void RestoredFile::RequireUnchanged(const FileTurn& turn) const {
    const FileLook& look = turn.get_Look();
    uint64_t device = 0;
    uint64_t inode = 0;
    const bool exists = FileSystem::Get().Identify(target_.c_str(), device, inode);
    if (exists != look.exists || (exists && (device != look.device || inode != look.inode))) {
        RefuseReplacement("Another file has taken its place.");
    }
}

void RestoredFile::ReplaceTarget(FileTurn& turn) {
    if (HasLog(path_)) {
        throw std::runtime_error("The restored database could not be written whole.");
    }
    turn.ClaimPlace();
    RequireUnchanged(turn);
    FileLock lock;
    bool is_readable = !HasLog(target_);
    if (turn.get_Exists()) {
        LockTarget(turn, lock, is_readable);
    }
    ApplyRights(lock.get_Descriptor());
    if (!is_readable) {
        RequireUnchanged(turn);
        KeepTarget(turn);
    }
    // Nothing may fail after the file is in place: the caller would believe that the old one is still there.
    const std::string target_folder = target_.substr(0, target_.rfind('/') + 1);
    MoveIn(turn);
    FlushFolder(target_folder);
    turn.LookAgain();
}

void RestoredFile::ApplyRights(int old) const {
    struct stat built {};
    if (stat(path_.c_str(), &built) != 0) {
        Fail("The restored database is not there", errno);
    }
    struct stat target = built;
    if (old >= 0 && fstat(old, &target) != 0) {
        Fail("The access rights of the file cannot be read", errno);
    }
    const bool is_owned = built.st_uid == target.st_uid && built.st_gid == target.st_gid;
    if (!is_owned && chown(path_.c_str(), target.st_uid, target.st_gid) != 0) {
        Fail("The owner of the file cannot be kept", errno);
    }
    const mode_t mode = (old >= 0 ? target.st_mode : built.st_mode & most_rights_) & kAllRights;
    if (chmod(path_.c_str(), mode) != 0) {
        Fail("The access rights of the file cannot be kept", errno);
    }
}

void RestoredFile::LockTarget(const FileTurn& turn, FileLock& lock, bool& is_readable) const {
    // Another process may write between the checkpoint, for which DuckDB needs the lock, and this lock.
    constexpr int kAttempts = 20;
    for (int i = 0; i < kAttempts; ++i) {
        const FileStamp before = FileSystem::Get().ReadStamp(target_);
        if (HasLog(target_)) {
            RequireUnchanged(turn);
            FoldLog(target_);
        }
        const FileStamp folded = FileSystem::Get().ReadStamp(target_);
        std::string reason;
        if (!lock.Take(turn.get_Look(), reason)) {
            RefuseReplacement(reason);
        }
        const FileStamp now = FileSystem::Get().ReadStamp(target_);
        is_readable = !HasLog(target_);
        // DuckDB cannot read a log that it leaves unchanged twice: the first time, another process may have
        // had the file open. Any other log is one that another process has left since the checkpoint.
        const bool is_settled = is_readable || (i > 0 && IsSameLog(now, before));
        if (is_settled && now == folded) {
            return;
        }
        lock.Release();
    }
    RefuseReplacement("Other processes keep writing to the file.");
}

void RestoredFile::KeepTarget(const FileTurn& turn) const {
    const std::string kept = NameForUnreadable(target_);
    const std::string text =
        "mduckdb: " + target_ + " has a log that DuckDB cannot read; both were kept as " + kept + "\n";
    std::array<std::pair<std::string, std::string>, kLogEndings.size()> logs;
    for (std::size_t i = 0; i < logs.size(); ++i) {
        logs[i] = {target_ + kLogEndings[i], kept + kLogEndings[i]};
    }
    // Create it as a second name first, so that the file exists at every moment.
    if (turn.get_Exists() && link(target_.c_str(), kept.c_str()) != 0 &&
        rename(target_.c_str(), kept.c_str()) != 0) {
        Fail("The old file cannot be renamed", errno);
    }
    for (const auto& [from, to] : logs) {
        if (rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
            Fail("The old log cannot be renamed", errno);
        }
    }
    fputs(text.c_str(), stderr);
}

void RestoredFile::MoveIn(const FileTurn& turn) const {
    if (!turn.get_Exists()) {
        RenameToFreeName(path_, target_);
    } else if (rename(path_.c_str(), target_.c_str()) != 0) {
        Fail("The old file cannot be replaced", errno);
    }
}

}  // namespace mduckdb
