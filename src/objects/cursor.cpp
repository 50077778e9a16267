#include "objects/cursor.h"

#include <utility>

#include "objects/duckdb_cursor_client.h"
#include "objects/duckdb_cursor_server.h"

namespace mduckdb {

nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> MakeCursor(SharedLink link, ResultHolder& result,
                                                      uint32_t cursor_location) {
    if (cursor_location == nbx::mrsql::kClientCursor) {
        return nbx::MakeObject<DuckDBCursor_client>(std::move(link), result);
    }
    return nbx::MakeObject<DuckDBCursor_server>(std::move(link), result);
}

nbx::smart_ptr<nbx::ValueRows> GetClientCursorRows(nbx::mrsql::I_DuckDBCursor* cursor) {
    auto* client = dynamic_cast<DuckDBCursor_client*>(cursor);
    return client != nullptr ? client->get_Rows() : nullptr;
}

bool IsClientCursor(nbx::mrsql::I_DuckDBCursor* cursor) {
    return dynamic_cast<DuckDBCursor_client*>(cursor) != nullptr;
}

}  // namespace mduckdb
