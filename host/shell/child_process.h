#pragma once

#include <sys/types.h>

#include <string>

namespace mduckdb_host {

/** Starts `/bin/sh -c script sh argument`, with Ctrl-C and closed pipes as every program expects them. Its
   standard input is `input`, or this program's for -1. Throws `xUsageError`, which names `what`. */
pid_t StartScript(const std::string& what, const std::string& script, const std::string& argument,
                  int input = -1);

/** Waits for the process to terminate; returns its exit status, -1 after a signal. */
int WaitForProcess(pid_t process);

/** Whether the first word of the command is a program: an executable file, or one in a folder of PATH. */
bool HasProgram(const std::string& command);

}  // namespace mduckdb_host
