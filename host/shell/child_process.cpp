#include "shell/child_process.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "text/messages.h"

namespace mduckdb_host {

namespace {

/** This program blocks Ctrl-C and ignores SIGPIPE, which its child would inherit. */
class UsualSignals {
  public:
    UsualSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        sigaddset(&signals, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
    }
    ~UsualSignals() { posix_spawnattr_destroy(&attributes_); }
    UsualSignals(const UsualSignals&) = delete;
    UsualSignals& operator=(const UsualSignals&) = delete;

    const posix_spawnattr_t* get() const noexcept { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

}  // namespace

pid_t StartScript(const std::string& what, const std::string& script, const std::string& argument,
                  int input) {
    const char* const arguments[] = {"sh", "-c", script.c_str(), "sh", argument.c_str(), nullptr};
    const UsualSignals signals;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int error = input < 0 ? 0 : posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    pid_t process = 0;
    if (error == 0) {
        error = posix_spawn(&process, "/bin/sh", &actions, signals.get(), const_cast<char* const*>(arguments),
                            environ);
    }
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw xUsageError(fmt::format("Cannot run '{}': {}.", what, std::strerror(error)));
    }
    return process;
}

int WaitForProcess(pid_t process) {
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool HasProgram(const std::string& command) {
    std::string program;
    std::istringstream(command) >> program;
    if (program.empty() || program.find('/') != std::string::npos) {
        return !program.empty() && ::access(program.c_str(), X_OK) == 0;
    }
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        folder += '/';
        folder += program;
        if (::access(folder.c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace mduckdb_host
