#include "shell/paged_output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "databases/interruption.h"
#include "shell/child_process.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

/** A result of few lines is long nevertheless if it has more bytes. */
constexpr std::size_t kMostHeld = std::size_t{1} << 18U;

/** Empty if there is none, or if it would only copy. */
std::string FindPager() {
    const char* const wanted = std::getenv("PAGER");
    const std::string command = wanted != nullptr ? wanted : "less";
    return command != "cat" && HasProgram(command) ? command : std::string();
}

}  // namespace

PagedOutput::PagedOutput(int descriptor)
    : Output(descriptor),
      descriptor_(descriptor),
      command_(get_IsTerminal() && UnderstandsEscapes() ? FindPager() : std::string()) {}

PagedOutput::~PagedOutput() {
    ClosePipe();
    if (pager_ != 0) {
        WaitForProcess(pager_);
    }
}

void PagedOutput::BeginPage() {
    Flush();
    held_lines_ = 0;
    is_holding_ = is_paged_ && !command_.empty();
}

void PagedOutput::EndPage() {
    try {
        Flush();
    } catch (const xOutputClosed&) {
        // The user has left the pager before the end.
        if (!get_IsInPager()) {
            throw;
        }
    }
    is_holding_ = false;
    WriteAll(descriptor_, std::exchange(held_, {}));
    if (!get_IsInPager()) {
        return;
    }
    ClosePipe();
    const int status = WaitForProcess(std::exchange(pager_, 0));
    // A Ctrl-C in the pager was for the pager.
    TakeInterrupt();
    constexpr int kCannotRun = 126;
    if (status == kCannotRun || status == kCannotRun + 1) {
        PrintError(
            fmt::format("'{}' failed with status {}. Set PAGER to the pager to use.", command_, status));
    }
}

void PagedOutput::Send(std::string_view text) {
    if (get_IsInPager()) {
        WriteAll(pipe_, text);
        return;
    }
    if (!is_holding_) {
        WriteAll(descriptor_, text);
        return;
    }
    held_ += text;
    held_lines_ += std::count(text.begin(), text.end(), '\n');
    // The next prompt takes a line, too.
    if (held_lines_ >= get_Lines() || held_.size() > kMostHeld) {
        StartPager();
        WriteAll(pipe_, std::exchange(held_, {}));
    }
}

void PagedOutput::StartPager() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "Cannot start the pager");
    }
    pipe_ = ends[1];
    try {
        // Without settings of the user's own, less shows colours, does not fold lines, and leaves the text
        // behind.
        pager_ = StartScript(command_, "LESS=${LESS-FRSX}; export LESS; " + command_, {}, ends[0]);
    } catch (...) {
        ::close(ends[0]);
        ClosePipe();
        throw;
    }
    ::close(ends[0]);
}

void PagedOutput::ClosePipe() noexcept {
    if (pipe_ >= 0) {
        ::close(std::exchange(pipe_, -1));
    }
}

}  // namespace mduckdb_host
