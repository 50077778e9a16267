#include "shell/editor.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "text/messages.h"

namespace mduckdb_host {

namespace {

/** A file for the editor, readable by the user only, and removed at the end. */
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& text)
        : path_((std::filesystem::temp_directory_path() / "mduckdb-XXXXXX.sql").string()) {
        const int descriptor = mkstemps(path_.data(), static_cast<int>(std::strlen(".sql")));
        if (descriptor < 0) {
            throw xUsageError(fmt::format("Cannot write '{}': {}.", path_, std::strerror(errno)));
        }
        ::close(descriptor);
        std::ofstream(path_, std::ios::binary) << text;
    }
    ~TemporaryFile() { ::unlink(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& get_Path() const noexcept { return path_; }
    std::string Read() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::string path_;
};

std::string FindEditor() {
    for (const char* name : {"VISUAL", "EDITOR"}) {
        const char* const editor = std::getenv(name);
        if (editor != nullptr && *editor != '\0') {
            return editor;
        }
    }
    return "vi";
}

/** Runs the command, which may have arguments of its own, with the file; returns its exit status. */
int RunEditor(const std::string& command, const std::string& file) {
    const std::string script = command + " \"$1\"";
    const char* const arguments[] = {"sh", "-c", script.c_str(), "sh", file.c_str(), nullptr};
    // This program blocks Ctrl-C, which the editor would inherit.
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &none);
    pid_t process = 0;
    const int error =
        posix_spawn(&process, "/bin/sh", nullptr, &attributes, const_cast<char* const*>(arguments), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw xUsageError(fmt::format("Cannot run '{}': {}.", command, std::strerror(error)));
    }
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

std::string EditText(const std::string& text) {
    const TemporaryFile file(text);
    const std::string editor = FindEditor();
    const int status = RunEditor(editor, file.get_Path());
    if (status != 0) {
        throw xUsageError(
            fmt::format("'{}' failed with status {}. Set EDITOR to the editor to use.", editor, status));
    }
    return file.Read();
}

}  // namespace mduckdb_host
