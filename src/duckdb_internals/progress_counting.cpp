#include "duckdb_internals/progress_counting.h"

#include <duckdb/main/client_config.hpp>
#include <duckdb/main/client_context.hpp>
#include <duckdb/main/connection.hpp>

namespace mduckdb {

void CountProgress(duckdb_connection connection, bool is_counted) noexcept {
    duckdb::ClientConfig& config =
        duckdb::ClientConfig::GetConfig(*reinterpret_cast<duckdb::Connection*>(connection)->context);
    // DuckDB counts only for a progress bar, which must not print.
    config.enable_progress_bar = is_counted;
    config.print_progress_bar = !is_counted;
}

}  // namespace mduckdb
