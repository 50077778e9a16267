#pragma once

#include "objects/database_link.h"

namespace mduckdb {

/** A further connection to a database's engine, for one long operation that runs without the engine lock.

    It has the settings of every connection of ours (errors as JSON), a transaction of its own, and an
    interrupt of the database reaches it for its whole life. Whoever has one keeps the engine open: while it
    lives the database must not close (`ExportGate`). */
class SideConnection : nbx::noncopyable {
  public:
    /** Throws `xDuckDBError` when DuckDB gives no connection. */
    SideConnection(SharedLink link, SharedEngine engine);
    ~SideConnection();

    duckdb_connection get() const { return *session_.get_Connection(); }
    InterruptibleConnection& get_Interruptible() noexcept { return interruptible_; }

  private:
    const SharedLink link_;
    /** Ends the connection. */
    Session session_;
    InterruptibleConnection interruptible_;
};

}  // namespace mduckdb
