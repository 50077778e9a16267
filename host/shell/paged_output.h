#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "print/output.h"

namespace mduckdb_host {

/** The terminal, where results that do not fit on the screen go through the user's pager: `$PAGER`, or else
   less. Other text, and everything if there is no pager, is written as it comes. */
class PagedOutput final : public Output {
  public:
    explicit PagedOutput(int descriptor);
    ~PagedOutput() override;

    void put_IsPaged(bool is_paged) noexcept { is_paged_ = is_paged; }
    /** A result begins: it is held back until it is longer than the screen, or ends. */
    void BeginPage();
    /** The result has ended: shows it, or waits until the user leaves the pager. */
    void EndPage();
    /** Whether the user is reading the result in the pager. When they leave it, writing throws
     * `xOutputClosed`. */
    bool get_IsInPager() const noexcept { return pager_ != 0; }

  private:
    void Send(std::string_view text) override;
    void StartPager();
    void ClosePipe() noexcept;

    int descriptor_;
    /** Empty if results are not paged on this terminal. */
    std::string command_;
    bool is_paged_ = true;
    bool is_holding_ = false;
    std::string held_;
    std::ptrdiff_t held_lines_ = 0;
    int pipe_ = -1;
    pid_t pager_ = 0;
};

}  // namespace mduckdb_host
