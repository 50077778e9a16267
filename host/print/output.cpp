#include "print/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

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
        Flush();
    } catch (const std::exception&) {
        // A destructor cannot report. Callers that care call `Flush` first.
        buffer_.clear();
    }
}

void Output::Write(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= kBufferSize) {
        Flush();
    }
}

void Output::Flush() {
    std::string_view rest = buffer_;
    while (!rest.empty()) {
        const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        const int error = errno;
        buffer_.clear();
        if (error == EPIPE) {
            throw xOutputClosed();
        }
        throw std::system_error(error, std::generic_category(), "Cannot write the output");
    }
    buffer_.clear();
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
