#include "backup/restoration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "backup/facts.h"
#include "backup/file_engine.h"
#include "backup/files.h"
#include "backup/manifest.h"

namespace mduckdb {

namespace {

namespace fs = std::filesystem;

FileIdentity IdentityOf(const std::string& snapshot) {
    const std::string file = ManifestOf(snapshot);
    if (!fs::exists(file)) {
        throw BackupError(snapshot + " cannot be checked: " + file + " is missing");
    }
    const std::optional<FileIdentity> identity = ReadManifest(ReadWhole(file));
    if (!identity) {
        throw BackupError(file + " is not the manifest of a snapshot");
    }
    return *identity;
}

/** Takes the lock that DuckDB takes on a file; held until the descriptor is closed. */
void LockAsDuckDb(const Descriptor& file, const std::string& path) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(file.get(), F_SETLK, &lock) == 0) {
        return;
    }
    lock.l_type = F_WRLCK;
    fcntl(file.get(), F_GETLK, &lock);
    throw BackupError(path + " is in use" +
                      (lock.l_type != F_UNLCK ? " by process " + std::to_string(lock.l_pid) : std::string()));
}

/** A log left behind would be replayed into the new file. */
void FoldLog(const std::string& file, const std::string& spill) {
    if (!fs::exists(file + ".wal")) {
        return;
    }
    { const FileEngine engine(file, FileEngine::Access::writing, "", spill); }
    if (fs::exists(file + ".wal")) {
        throw BackupError(file + ".wal cannot be folded into its file, so the file cannot be replaced");
    }
}

void CopyRights(const Descriptor& from, const std::string& to) {
    struct stat info {};
    if (fstat(from.get(), &info) != 0 || chmod(to.c_str(), info.st_mode & 07777U) != 0) {
        ThrowFileError(to, "given the rights of the file that it replaces");
    }
    // Only root may give a file away; for everybody else it stays theirs, as a file that they write does.
    if (chown(to.c_str(), info.st_uid, info.st_gid) != 0 && geteuid() == 0) {
        ThrowFileError(to, "given the owner of the file that it replaces");
    }
}

}  // namespace

std::string EndOfLinks(const std::string& path) {
    std::error_code error;
    const fs::path end = fs::weakly_canonical(path, error);
    return error ? path : end.string();
}

Restoration::Restoration(const std::string& snapshot, const std::string& target, BackupStop& stop)
    : target_(EndOfLinks(target)), part_(target_), copy_(part_ / fs::path(target_).filename().string()) {
    const FileIdentity identity = IdentityOf(snapshot);
    const uint64_t size = FileSize(snapshot);
    if (size != identity.size) {
        throw BackupError(snapshot + " is damaged: it has " + std::to_string(size) + " bytes instead of " +
                          std::to_string(identity.size));
    }
    if (FileSize(snapshot + ".wal") > 0) {
        throw BackupError(snapshot + " was written to after it was made: there is " + snapshot + ".wal");
    }
    Descriptor(copy_, O_WRONLY | O_CREAT | O_EXCL).Close();
    if (CopyFileWithSum(snapshot, copy_, stop) != identity.sha256) {
        throw BackupError(snapshot + " is damaged: its checksum is not that of its manifest");
    }
    const FileEngine engine(copy_, FileEngine::Access::reading, "", part_ / "spill");
    SqlWorker worker(engine.get(), stop);
    ReadCatalog(worker);
}

void Restoration::PutInPlace() {
    if (!fs::exists(fs::symlink_status(target_))) {
        RenameToFreeName(copy_, target_);
    } else {
        if (!fs::is_regular_file(target_)) {
            throw BackupError(target_ + " is not a file");
        }
        {
            const Descriptor old(target_, O_RDWR);
            LockAsDuckDb(old, target_);
        }
        FoldLog(target_, part_ / "spill");
        const Descriptor old(target_, O_RDWR);
        LockAsDuckDb(old, target_);
        if (fs::exists(target_ + ".wal")) {
            throw BackupError(target_ + " is in use");
        }
        CopyRights(old, copy_);
        fs::rename(copy_, target_);
    }
    SyncToDisk(fs::path(target_).parent_path().string());
}

}  // namespace mduckdb
