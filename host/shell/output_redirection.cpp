#include "shell/output_redirection.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "text/messages.h"

namespace mduckdb_host {

OutputRedirection::~OutputRedirection() {
    Close();
}

void OutputRedirection::WriteTo(const std::string& path, bool is_once) {
    Reset();
    constexpr mode_t kMode = 0666;
    const int descriptor = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, kMode);
    if (descriptor < 0) {
        throw xUsageError(fmt::format("Cannot write '{}': {}.", path, std::strerror(errno)));
    }
    descriptor_ = descriptor;
    is_once_ = is_once;
    try {
        file_ = std::make_unique<Output>(descriptor);
    } catch (...) {
        Close();
        throw;
    }
}

void OutputRedirection::Reset() {
    is_once_ = false;
    if (file_ != nullptr) {
        const std::unique_ptr<Output> file = std::move(file_);
        try {
            file->Flush();
        } catch (...) {
            Close();
            throw;
        }
    }
    Close();
}

void OutputRedirection::Close() noexcept {
    // Before its descriptor, which its destructor writes to.
    file_.reset();
    if (descriptor_ >= 0) {
        ::close(descriptor_);
        descriptor_ = -1;
    }
}

}  // namespace mduckdb_host
