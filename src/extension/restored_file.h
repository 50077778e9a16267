#pragma once

#include <sys/types.h>

#include <string>

#include "backup/part_folder.h"
#include "engines/engine_files.h"

namespace mduckdb {

/** A database file that is built in a folder of its own next to its target, which only this user may enter,
    and replaces the target at the end. Failures are `std::runtime_error` and leave the target unchanged. */
class RestoredFile : nbx::noncopyable {
  public:
    /** `path` (UTF-8) is the target as it was given: the file is built under the same name, since the catalog
        takes its name from the file. */
    explicit RestoredFile(const std::string& path);

    /** Where to build the file. */
    const std::string& get_Path() const { return path_; }
    /** A folder for DuckDB's temporary files, deleted with this object. */
    std::string get_SpillPath() const { return folder_ / "spill"; }
    /** For a target that does not exist: the file gets no more access rights than this file has. */
    void LimitRights(const std::string& model);
    /** Throws when the target must not be replaced: another process has it open, or it is not a
        database. */
    static void CheckTarget(const FileTurn& turn);
    /** Replaces the target. No engine may have the built file open any more. */
    void ReplaceTarget(FileTurn& turn);

  private:
    /** The turn may have looked at the target minutes ago. Throws when the name means another file by now, or
        one more: its log is not to be touched. */
    void RequireUnchanged(const FileTurn& turn) const;
    /** Writes the target's log into it (checkpoint) and takes the lock on it; sets `is_readable`. */
    void LockTarget(const FileTurn& turn, FileLock& lock, bool& is_readable) const;
    /** `old` is the target, or -1 when there is none. */
    void ApplyRights(int old) const;
    void MoveIn(const FileTurn& turn) const;
    /** Renames the target and its log, and reports their new name. */
    void KeepTarget(const FileTurn& turn) const;

    /** The target of links at the end of the given path. */
    const std::string target_;
    const PartFolder folder_;
    std::string path_;
    mode_t most_rights_ = 0777;
};

}  // namespace mduckdb
