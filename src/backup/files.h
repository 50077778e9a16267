#pragma once

#include <cstdint>
#include <string>

#include "backup/sha256.h"
#include "backup/stop.h"
#include "base/descriptor.h"

namespace mduckdb {

/** Throws `BackupError` that names the file. */
Descriptor OpenDescriptor(const std::string& path, int flags);

/** The descriptor under which this process has the file open for reading already, or -1.

    A file that DuckDB has open must be read through DuckDB's own descriptor: the lock on it belongs to
    the process and is lost with the first descriptor of the file that is closed, a duplicate included.
    The descriptor stays open for as long as the engine does, so its user keeps a connection. */
int FindOpenDescriptor(const std::string& path);

/** Bytes in a file; 0 when it does not exist. */
uint64_t FileSize(const std::string& path);

/** Copies the first `size` bytes to `target`, which exists and is empty. Skips blocks of zeros, so that a
    sparse file stays sparse. The disk writes while the copy goes on reading. Throws `BackupError` when a file
    cannot be read or written, or ends too early. */
void CopyBytes(int source, uint64_t size, const std::string& target, const BackupStop& stop);
/** The same; returns the checksum of the copied bytes. */
std::string CopyBytesWithSum(int source, uint64_t size, const std::string& target, const BackupStop& stop);

/** The SHA-256 of a file that this process does not have open elsewhere. */
std::string FileSum(const std::string& path, const BackupStop& stop);

/** Waits until the disk holds what was written to the file, or the names in the folder. */
void SyncToDisk(const std::string& path);
/** Writes a small file and waits until the disk holds it. */
void WriteWhole(const std::string& path, const std::string& content);
/** A small file as a text. Throws `BackupError` when it cannot be read. */
std::string ReadWhole(const std::string& path);

/** The folder, locked for this process and for others that ask for the lock; waits for it until the work is
    stopped. The lock ends with the descriptor. Where the file system has no such locks, it is not locked. */
Descriptor LockFolder(const std::string& folder, const BackupStop& stop);

/** Removes the access rights that the model, an open file, does not have. Throws `BackupError`. */
void LimitRights(const std::string& path, int model);
/** Renames; fails when the new name is taken. Throws `BackupError`. */
void RenameToFreeName(const std::string& from, const std::string& to);

/** Throws `BackupError` "PATH cannot be OPERATED: reason" for the current errno. */
[[noreturn]] void ThrowFileError(const std::string& path, const char* operated);

}  // namespace mduckdb
