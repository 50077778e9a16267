#pragma once

#include <duckdb.h>

#include <vector>

#include "base/holders.h"

namespace duckdb {
struct BoundParameterData;
}

namespace mduckdb {

/** Owns a prepared statement and binds its parameters.

    Binds in place, since DuckDB looks the parameter up by name at every bind and copies the value several
    times, which costs more than the rest of a typed bind. A value does not move until the bindings are
    cleared, so this object remembers its address, and a parameter that has a value gets the next one
    directly. Not for two threads at once. */
class BindableStatement {
  public:
    duckdb_prepared_statement get() const noexcept { return prepared_.get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(prepared_); }
    /** Destroys the held handle and returns the address for a new one. */
    duckdb_prepared_statement* Receive() noexcept;
    void Reset() noexcept;

    duckdb_state ClearBindings() noexcept;
    /** Does what `kBind`, one of DuckDB's bind functions, does with the same arguments: same value, same
        outcome, same error in the statement. Defined for the functions that are listed in the source. */
    template <auto kBind, class... Arguments>
    duckdb_state Bind(idx_t index, Arguments... arguments);

  private:
    PreparedHolder prepared_;
    /** By the parameter's number; null if none is known. DuckDB owns them and keeps them until the bindings
        are cleared. */
    std::vector<duckdb::BoundParameterData*> places_;
};

}  // namespace mduckdb
