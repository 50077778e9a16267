#pragma once

#include "objects/database_link.h"

namespace mduckdb {

/** Another connection to a database's engine, for one long operation that runs without the engine lock.

    It has the settings of all connections of this module (errors as JSON) and its own transaction, and an
    interrupt of the database reaches it for its whole life. The database must not close while it exists
    (`ExportGate`). */
class SideConnection : nbx::noncopyable {
  public:
    /** Throws `xDuckDBError` when DuckDB cannot connect. */
    SideConnection(SharedLink link, SharedEngine engine);
    ~SideConnection();

    duckdb_connection get() const { return *session_.get_Connection(); }
    InterruptibleConnection& get_Interruptible() noexcept { return interruptible_; }

    /** While it exists, no interrupt reaches the connection. */
    class Shield : nbx::noncopyable {
      public:
        explicit Shield(SideConnection& side) noexcept : side_(side) {
            side_.interruptible_.Replace(nullptr);
        }
        ~Shield() { side_.interruptible_.Replace(side_.session_.get_Connection()); }

      private:
        SideConnection& side_;
    };

  private:
    const SharedLink link_;
    /** Disconnects. */
    Session session_;
    InterruptibleConnection interruptible_;
};

}  // namespace mduckdb
