#pragma once

#include "mirona/extension_api.h"

namespace mduckdb {

/** Stores the host's function table, which lives as long as the process. */
void BindApi(const mirona_extension_api* api) noexcept;
const mirona_extension_api& GetApi() noexcept;

/** The host's handle for reports that belong to no call; null before RegisterProcedures. */
mirona_host GetHost() noexcept;

/** Registers the five procedures; one that the host refuses is reported and otherwise ignored. */
void RegisterProcedures(mirona_host host);

}  // namespace mduckdb
