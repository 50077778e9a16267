#pragma once

#include <string>
#include <vector>

#include "shell/session.h"

namespace mduckdb_host {

/** Runs a dot command, given with its dot. Throws `xUsageError` and whatever its work throws. */
void RunDotCommand(Session& session, const std::string& line);
/** The words that the dot command accepts as its first argument; `line` is the text before it. Empty if the
    argument may be anything. */
std::vector<std::string> CompleteDotArgument(const Session& session, const std::string& line);
/** The arguments of the dot command that the line consists of; for the start of one name also its rest. */
std::string DescribeDotArguments(const std::string& line);
/** The names of the dot commands that begin with the word. */
std::vector<std::string> CompleteDotCommand(const std::string& word);

}  // namespace mduckdb_host
