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

}  // namespace mduckdb
