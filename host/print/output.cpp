#include "print/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

namespace mduckdb_host {

namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 16U;

winsize GetWindowSize(int descriptor) noexcept {
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0) {
        size = {};
    }
    return size;
}

}  // namespace

bool UnderstandsEscapes() noexcept {
    const char* const terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != '\0' && std::strcmp(terminal, "dumb") != 0;
}

Output::Output(int descriptor) : descriptor_(descriptor), is_terminal_(isatty(descriptor) == 1) {}

Output::~Output() {
    try {
        Output::Send(buffer_);
    } catch (const std::exception&) {
        // A destructor cannot report. Callers that care call `Flush` first.
    }
}

void Output::Write(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= kBufferSize) {
        Flush();
    }
}

void Output::Flush() {
    // What cannot be written is not written again.
    const std::string text = std::exchange(buffer_, {});
    if (!text.empty()) {
        Send(text);
    }
}

void Output::WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            throw xOutputClosed();
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "Cannot write the output");
        }
    }
}

int Output::get_Columns() const noexcept {
    const int columns = GetWindowSize(descriptor_).ws_col;
    return columns > 0 ? columns : 80;
}

int Output::get_Lines() const noexcept {
    const int lines = GetWindowSize(descriptor_).ws_row;
    return lines > 0 ? lines : 24;
}

}  // namespace mduckdb_host
