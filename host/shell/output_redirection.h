#pragma once

#include <memory>
#include <string>

#include "print/output.h"

namespace mduckdb_host {

/** Where the shell's results go: to the program's output, or for a while into a file. Messages and errors are
    not affected. */
class OutputRedirection {
  public:
    explicit OutputRedirection(Output& standard) : standard_(standard) {}
    ~OutputRedirection();
    OutputRedirection(const OutputRedirection&) = delete;
    OutputRedirection& operator=(const OutputRedirection&) = delete;

    Output& get_Output() noexcept { return file_ ? *file_ : standard_; }
    /** Replaces the content of the file. Throws `xUsageError` when it cannot be written. */
    void WriteTo(const std::string& path, bool is_once);
    /** Flushes and closes the file, if there is one. Throws what `Output::Flush` throws. */
    void Reset();
    /** Whether the file is for the next result only. */
    bool get_IsOnce() const noexcept { return is_once_; }

  private:
    void Close() noexcept;

    Output& standard_;
    std::unique_ptr<Output> file_;
    int descriptor_ = -1;
    bool is_once_ = false;
};

}  // namespace mduckdb_host
