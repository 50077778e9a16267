#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "base/descriptor.h"
#include "nbx/open_files.h"
#include "nbx/unknown.h"

namespace mduckdb {

/** A file as the system finds it by a path. */
struct FileLook {
    bool exists = false;
    uint64_t device = 0;
    uint64_t inode = 0;
    uint64_t folder_device = 0;
    uint64_t folder_inode = 0;
    /** The last part of `path`; the whole path where the system knows no folder, as of a file on a network.
     */
    std::string name;
    /** Where the file itself is, or would be created: links at the end of the path are followed. */
    std::string path;

    /** Whether the folder that the file is in, or would be made in, is there. */
    bool get_HasFolder() const { return folder_inode != 0; }
    nbx::FileIdentity get_Identity() const {
        return {exists, device, inode, folder_device, folder_inode, name.c_str()};
    }
    friend bool operator==(const FileLook&, const FileLook&) = default;
};

/** Size and modification time of a file and of its log; -1 for a missing file. */
using FileStamp = std::array<int64_t, 4>;

/** What this module asks the system about database files. A seam for tests. The functions may block for as
   long as a disk takes, and they do not open files. */
class FileSystem {
  public:
    virtual ~FileSystem() = default;
    virtual FileLook Look(const std::string& path) const;
    /** Whether there is something at the path, and then what it is. Needs no memory: to be asked after a
        change that cannot be taken back. */
    virtual bool Identify(const char* path, uint64_t& device, uint64_t& inode) const noexcept;
    virtual FileStamp ReadStamp(const std::string& path) const;
    /** Whether this process has a descriptor on a DuckDB database that is this file. */
    virtual bool IsDatabaseOpenHere(const FileLook& file) const;

    static const FileSystem& Get();
};

/** The path with the folder that its ".." lead to, up to the first wildcard: DuckDB removes a ".." with
    whatever is before it, which may be a link. Unchanged without a "..", on a network and for `~`; empty when
    the system does not find the folder. */
std::string ResolveParents(const std::string& path);

/** The endings of the files that belong to a database's log. */
inline constexpr std::array<const char*, 3> kLogEndings{".wal", ".wal.checkpoint", ".wal.recovery"};
/** Whether the log, or a part of it, is next to the database. */
bool HasLog(const std::string& path);

/** The names of a database's log, made before the file is deleted, so that a lack of memory cannot leave the
   log behind. */
class LogNames {
  public:
    explicit LogNames(const std::string& path);
    /** Deletes what there is, also after one that cannot be deleted. 0, or the first `errno`. */
    int Delete() const noexcept;

  private:
    std::array<std::string, kLogEndings.size()> names_;
};

/** What a file is, judging by its content. */
enum class FileContent {
    empty,
    /** It starts as a DuckDB database does. */
    database,
    other,
    unreadable,
};
/** Reads through a descriptor of the caller. */
FileContent ReadContent(int descriptor);
/** Reads through a descriptor that this process already has on the file: opening and closing the file once
    more would drop the process's lock on it. `unreadable` when there is none. */
FileContent ReadContentWithoutOpening(const FileLook& file);

/** Locks a file again that engines of this process read, through one of their descriptors: closing any other
    descriptor of the file has released the lock. Returns false if another process has locked the file
    meanwhile, or if the system does not list descriptors. */
bool RenewReadLock(const FileLook& file) noexcept;

/** DuckDB's text for a file that another process has locked, with the name of that process where DuckDB found
    none: a lock of an open file description belongs to no process. No engine of this process has the file
    open. */
std::string NameLockHolder(std::string text, const FileLook& file);

/** The exclusive lock on a database file that nobody has open, held from that check until the file is deleted
    or replaced. It is a lock of the open file description (OFD): it belongs to the descriptor, so closing
    another descriptor of the file does not drop it, as it would drop a lock of the process. DuckDB's own open
    of the file fails in every process while it is held. */
class FileLock : nbx::noncopyable {
  public:
    /** False and the reason when another process has the file open, or when it is neither a DuckDB database
       nor empty. The caller has the file's turn, and no engine of this process has it open. */
    bool Take(const FileLook& file, std::string& reason);
    FileContent get_Content() const { return content_; }
    /** The descriptor that has the lock. */
    int get_Descriptor() const { return descriptor_.get(); }
    void Release() noexcept { descriptor_.Close(); }

  private:
    bool TryTake(const FileLook& file, std::string& reason);
    /** Whether the opened file is the one that was checked, and is still there. */
    bool IsAt(const FileLook& file) const;

    Descriptor descriptor_;
    FileContent content_ = FileContent::unreadable;
};

}  // namespace mduckdb
