#include "database/session.h"

namespace mduckdb {

DuckDBDatabase::Session::~Session() {
    if (is_kept_) {
        return;
    }
    if (*connection_ != nullptr) {
        duckdb_disconnect(connection_.get());
    }
    if (is_owned_) {
        GiveUpEngine(*engine_);
    }
}

bool DuckDBDatabase::Session::Connect() {
    if (duckdb_connect(engine_->handle, connection_.get()) != DuckDBSuccess) {
        *connection_ = nullptr;
        return false;
    }
    return true;
}

}  // namespace mduckdb
