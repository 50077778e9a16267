#include "backup/snapshot_copy.h"

#include <fcntl.h>

#include <filesystem>

#include "backup/facts.h"
#include "backup/file_engine.h"
#include "backup/files.h"
#include "backup/manifest.h"

namespace mduckdb {

namespace {

FileIdentity IdentityOf(const std::string& snapshot) {
    const std::string file = ManifestOf(snapshot);
    if (!std::filesystem::exists(file)) {
        throw BackupError(snapshot + " cannot be checked: " + file + " is missing");
    }
    const std::optional<FileIdentity> identity = ReadManifest(ReadWhole(file));
    if (!identity) {
        throw BackupError(file + " is not the manifest of a snapshot");
    }
    return *identity;
}

}  // namespace

void CopySnapshot(const std::string& snapshot, int source, const std::string& copy, const std::string& spill,
                  BackupStop& stop) {
    const FileIdentity identity = IdentityOf(snapshot);
    const uint64_t size = FileSize(snapshot);
    if (size != identity.size) {
        throw BackupError(snapshot + " is damaged: it has " + std::to_string(size) + " bytes instead of " +
                          std::to_string(identity.size));
    }
    if (FileSize(snapshot + ".wal") > 0) {
        throw BackupError(snapshot + " was written to after it was made: there is " + snapshot + ".wal");
    }
    OpenDescriptor(copy, O_WRONLY | O_CREAT | O_EXCL).Close();
    if (CopyBytesWithSum(source, size, copy, stop) != identity.sha256) {
        throw BackupError(snapshot + " is damaged: its checksum is not that of its manifest");
    }
    const FileEngine engine(copy, FileEngine::Access::reading, "", spill);
    SqlWorker worker(engine.get(), stop);
    ReadCatalog(worker);
}

}  // namespace mduckdb
