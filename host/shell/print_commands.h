#pragma once

#include <string>
#include <vector>

#include "shell/session.h"

namespace mduckdb_host {

/* Dot commands that say how and where results are printed; see `kCommands` in dot_commands.cpp. `words` are
   the arguments. They throw `xUsageError`. */

/** "on" is true, "off" false. */
bool ReadSwitch(const std::string& word);

void AllCommand(Session& session, const std::vector<std::string>& words);
void HeadersCommand(Session& session, const std::vector<std::string>& words);
void ModeCommand(Session& session, const std::vector<std::string>& words);
void NullValueCommand(Session& session, const std::vector<std::string>& words);
void OnceCommand(Session& session, const std::vector<std::string>& words);
void OutputCommand(Session& session, const std::vector<std::string>& words);
void PagerCommand(Session& session, const std::vector<std::string>& words);
void SeparatorCommand(Session& session, const std::vector<std::string>& words);
void TypesCommand(Session& session, const std::vector<std::string>& words);

}  // namespace mduckdb_host
