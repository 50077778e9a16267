#include "mirona/extension_api.h"
#include "procedures/procedures.h"

#define MDUCKDB_EXPORT extern "C" __attribute__((visibility("default")))

MDUCKDB_EXPORT void mirona_extension_bind_api(const mirona_extension_api* api) {
    mduckdb::BindApi(api);
}

MDUCKDB_EXPORT void mirona_extension_init(mirona_host host) {
    mduckdb::RegisterProcedures(host);
}
