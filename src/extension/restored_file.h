#pragma once

#include <sys/types.h>

#include <string>

#include "engines/engine_files.h"

namespace mduckdb {

/** A database file that is built in a folder of its own beside its target, which only this user may enter,
   and takes the target's place in the end. Failures are `std::runtime_error` and leave the target as it was.
 */
class RestoredFile : nbx::noncopyable {
  public:
    /** `path` is the target as it was given: the file is built under the same name, since the catalog's name
       comes from it. Throws when the target must not be replaced. */
    RestoredFile(FileTurn& turn, const std::string& path);
    /** Removes what was built and has not taken the target's place. */
    ~RestoredFile();

    /** Where to build the file. */
    const std::string& get_Path() const { return path_; }
    /** Whether there was a file that this one replaces. */
    bool get_ReplacesAnother() const { return turn_.get_Exists(); }
    /** For a target that does not exist: the file is to have no more access rights than this file. */
    void LimitRights(const std::string& model);
    /** Puts the file, which no engine has open any more, in the target's place. */
    void TakePlace();

  private:
    /** Folds the target's log into it and takes the lock on it; sets `is_readable`. */
    void LockTarget(FileLock& lock, bool& is_readable) const;
    void ApplyRights() const;
    void MoveIn() const;
    /** Gives the target's file and log another name, which is reported. */
    void KeepTarget() const;

    FileTurn& turn_;
    const std::string target_;
    std::string folder_;
    std::string path_;
    /** Of the target; of a new file the mode only. */
    mode_t mode_ = 0666;
    uid_t owner_ = 0;
    gid_t group_ = 0;
};

}  // namespace mduckdb
