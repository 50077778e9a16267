#pragma once

#include <memory>
#include <string>

#include "backup/files.h"

namespace mduckdb {

/** A folder next to a future file, in which that file is built: "FILE.part-XXXXXX". Deleted with everything
    in it at the end of the scope; the next one for the same file deletes what killed processes left
    behind. */
class PartFolder : nbx::noncopyable {
  public:
    /** Throws `BackupError`. */
    explicit PartFolder(const std::string& file);
    ~PartFolder();

    /** The path of a file in it. */
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& get_Path() const noexcept { return path_; }

  private:
    std::string path_;
    /** Locked for as long as this process works on the folder. */
    Descriptor in_use_;
};

}  // namespace mduckdb
