#pragma once

#include <array>
#include <cstdint>
#include <string>

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
    /** The last part of `path`. */
    std::string name;
    /** Where the file itself is, or would be made: links at the end of the given path are followed. */
    std::string path;

    nbx::FileIdentity get_Identity() const {
        return {exists, device, inode, folder_device, folder_inode, name.c_str()};
    }
    friend bool operator==(const FileLook&, const FileLook&) = default;
};

/** Size and time of change of a file and of its log; -1 for what is not there. */
using FileStamp = std::array<int64_t, 4>;

/** What this module asks the system about database files. A seam for tests; the functions may block for as
   long as a disk takes, and none of them opens a file. */
class FileSystem {
  public:
    virtual ~FileSystem() = default;
    virtual FileLook Look(const std::string& path) const;
    virtual FileStamp ReadStamp(const std::string& path) const;
    /** Whether this process has a descriptor on a DuckDB database that is this file. */
    virtual bool IsDatabaseOpenHere(const FileLook& file) const;

    static const FileSystem& Get();
};

/** The endings of the files that belong to a database's log. */
inline constexpr std::array<const char*, 3> kLogEndings{".wal", ".wal.checkpoint", ".wal.recovery"};
/** Whether the log, or a part of it, is beside the database. */
bool HasLog(const std::string& path);

/** Deletes the log; throws `std::system_error`. */
void DeleteLog(const std::string& path);

/** What a file is by its content. */
enum class FileContent {
    empty,
    /** It has DuckDB's mark. */
    database,
    other,
    unreadable,
};
/** By a descriptor of the caller's. */
FileContent ReadContent(int descriptor);
/** By a descriptor that this process has on the file anyway: opening and closing it once more would drop the
    process's lock on it. `unreadable` when there is none. */
FileContent ReadContentWithoutOpening(const FileLook& file);

/** DuckDB's text for a file that another process has locked, with the name of that process where DuckDB found
    none: a lock of an open file description belongs to no process. No engine of this process has the file
    open. */
std::string NameLockHolder(std::string text, const FileLook& file);

/** The exclusive lock on a database file that nobody has open, to be held from that check until the file is
    deleted or replaced. The lock belongs to the descriptor, so that closing another one does not drop it, and
    it refuses DuckDB's own open of the file in every process. */
class FileLock : nbx::noncopyable {
  public:
    FileLock() = default;
    ~FileLock();
    /** False and the reason when another process has the file open, or when it is neither a DuckDB database
       nor empty. The caller has the file's turn, and no engine of this process has it open. */
    bool Take(const FileLook& file, std::string& reason);
    FileContent get_Content() const { return content_; }
    /** The descriptor that has the lock. */
    int get_Descriptor() const { return descriptor_; }
    void Release() noexcept;

  private:
    /** Whether what was opened is the file that was looked at, and still there. */
    bool IsAt(const FileLook& file) const;

    int descriptor_ = -1;
    FileContent content_ = FileContent::unreadable;
};

}  // namespace mduckdb
