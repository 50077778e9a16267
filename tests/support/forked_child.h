#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

/** Forks; the child exits with what `act` returns. The child's status, or 1 if a signal has ended it, as it
   does after 20 seconds. */
inline int RunInForkedChild(int (*act)()) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        std::exit(act());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
