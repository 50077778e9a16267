#pragma once

#include <string>

#include "engines/configuration.h"

namespace mduckdb {

/* DuckDB names the files in its temporary directory by numbers that each engine counts for itself, and
   closing an engine deletes them: in a directory of two engines one would read, or delete, what the other
   wrote. */

/** Sets a temporary directory that no other engine uses. Its path starts with `beginning`. Configurations
   that differ only in this directory count as equal. */
void PutOwnSpill(Configuration& configuration, const std::string& beginning);

/** For an engine that is about to be opened on the path (UTF-8): leaves it the temporary directory of its
    configuration, or DuckDB's default, unless an engine of this process has that one; then it gets one of its
    own there, or next to it if there is no such folder. DuckDB creates and deletes it. The caller holds the
    engine lock until the engine is open. */
void SeparateSpill(Configuration& configuration, const std::string& path);

}  // namespace mduckdb
