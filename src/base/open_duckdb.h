#pragma once

#include <duckdb.h>

#include "nbx/standard_descriptors.h"

namespace mduckdb {

/** `duckdb_open_ext`, which every engine is opened through: the database file never gets the descriptor of a
    standard stream that the host has closed. */
inline duckdb_state OpenDuckDB(const char* path, duckdb_database* engine, duckdb_config configuration,
                               char** error) {
    nbx::OccupyStandardDescriptors();
    return duckdb_open_ext(path, engine, configuration, error);
}

}  // namespace mduckdb
