#pragma once

#include "database/database.h"
#include "database/engine.h"

namespace mduckdb {

/** An engine and a connection on their way to become a database's own. Until then this closes the
    connection, and the engine if it was opened for this session, so that a failure leaves nothing behind. */
class DuckDBDatabase::Session : nbx::noncopyable {
  public:
    Session() : connection_(std::make_shared<duckdb_connection>()) {}
    ~Session();

    /** Takes an engine that others use already. */
    void Join(SharedEngine engine) { engine_ = std::move(engine); }
    /** Takes an engine that is given up unless the session is kept. */
    void Own(SharedEngine engine) {
        engine_ = std::move(engine);
        is_owned_ = engine_ != nullptr;
    }
    /** False when DuckDB gives no connection. */
    bool Connect();

    const SharedEngine& get_Engine() const { return engine_; }
    const SharedConnection& get_Connection() const { return connection_; }
    /** Everything belongs to the database now. */
    void Keep() { is_kept_ = true; }

  private:
    SharedEngine engine_;
    // Made beforehand, so that nothing can fail between the opening of a handle and its being held.
    SharedConnection connection_;
    bool is_owned_ = false;
    bool is_kept_ = false;
};

}  // namespace mduckdb
