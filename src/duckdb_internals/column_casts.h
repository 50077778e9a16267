#pragma once

#include <duckdb.h>

#include <memory>
#include <vector>

namespace duckdb {
class ClientContext;
class DataChunk;
class Vector;
}  // namespace duckdb

namespace mduckdb {

/** Casts columns of chunks, one chunk at a time. A cell that cannot be cast, and one that must not be,
    see value_guard.h, becomes NULL and does not affect others. */
class ColumnCasts {
  public:
    /** For each column the type to cast it to, or DUCKDB_TYPE_INVALID to leave it unchanged. DuckDB casts
        with the settings of the connection, which must outlive this. */
    ColumnCasts(duckdb_connection connection, const std::vector<duckdb_type>& targets);
    ColumnCasts(ColumnCasts&&) noexcept;
    ColumnCasts& operator=(ColumnCasts&&) noexcept;
    ~ColumnCasts();

    /** Casts the rows in the chunk. Throws when memory runs out. */
    void Apply(duckdb::DataChunk& chunk);
    /** The cast column of the last chunk, or null when the column is left unchanged. */
    duckdb::Vector* get_Column(idx_t column) const noexcept { return columns_[column].get(); }

  private:
    duckdb::ClientContext* context_;
    std::vector<duckdb_type> targets_;
    std::vector<std::unique_ptr<duckdb::Vector>> columns_;
};

}  // namespace mduckdb
