#pragma once

#include <string>

#include "backup/part_folder.h"
#include "backup/stop.h"

namespace mduckdb {

/** The file that a name stands for: that at the end of links, or the name itself. */
std::string EndOfLinks(const std::string& path);

/** A copy of a snapshot in a folder beside the file that it is to become; deleted unless it was put in place.
 */
class Restoration : nbx::noncopyable {
  public:
    /** Makes the copy. Throws `BackupError` for a snapshot that is not what its manifest describes, or that
       DuckDB cannot read. */
    Restoration(const std::string& snapshot, const std::string& target, BackupStop& stop);

    /** Replaces the target in one step, or takes its name when there is none. No engine of this process may
        have the target open. Throws `BackupError`, also when another process has the file open; then the
       target is as it was. */
    void PutInPlace();

  private:
    const std::string target_;
    const PartFolder part_;
    const std::string copy_;
};

}  // namespace mduckdb
