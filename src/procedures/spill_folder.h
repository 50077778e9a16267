#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "nbx/unknown.h"

namespace mduckdb {

/** A new folder for what engines write when their memory is full. Only this user can read it, which matters
    because DuckDB creates its files there with the rights that the process gives to any file. */
class SpillFolder : nbx::noncopyable {
  public:
    /** Creates it in an existing folder. Throws `std::system_error`. */
    explicit SpillFolder(const std::string& parent);
    /** Removes it with everything in it, except in a child of a fork. */
    ~SpillFolder();

    const std::string& get_Path() const noexcept { return path_; }

  private:
    std::string path_;
    const pid_t process_;
};

/** The beginning of a path, to which this adds what makes it the path of one engine. DuckDB names the files
    in its temporary directory by numbers that each engine counts for itself, and closing an engine deletes
    them: in a directory of two engines one would read, or delete, what the other wrote. */
std::string MakeSpillPath(const std::string& beginning);

}  // namespace mduckdb
