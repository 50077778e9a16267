#pragma once

#include <string>
#include <vector>

#include "shell/session.h"

namespace mduckdb_host {

/** The words that can complete `word`; `line` is the text before it. Empty where file names are expected,
    which the line reader completes itself. */
std::vector<std::string> Complete(const Session& session, const std::string& line, const std::string& word);

/** What the line could continue with: the arguments of a dot command or a procedure. Empty if that is not
 * known. */
std::string DescribeContinuation(const Session& session, const std::string& line);

}  // namespace mduckdb_host
