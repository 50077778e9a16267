#pragma once

#include <atomic>
#include <exception>
#include <memory>
#include <string>

#include "objects/duckdb_cursor_server.h"
#include "objects/side_connection.h"
#include "values/parameter_binding.h"

namespace mduckdb {

/** A forward cursor over rows that DuckDB computes while they are read, on a connection of its own.

    It is in the database's list before its query begins. So `Close` finds it, stops what runs and waits for
   that, with no help from the thread that reads, and the connection and the result are gone before the engine
   is closed. Starting and reading hold the mutex of the result and not the engine lock. */
class StreamCursor final : public DuckDBCursor_server {
  public:
    /** Connects. The database is open. */
    StreamCursor(SharedLink link, SharedEngine engine) NBX_REQUIRES(gEngineLock);
    /** Runs the query, without the engine lock, until its first rows are there. Only once. */
    void Start(const std::string& sql, const nbx::ValueRow* parameters);

    bool NextRecord() override;

  protected:
    ChunkHolder ReadChunk(ResultScanHolder& scan, RowsAre rows) override;
    void StopReading() noexcept override;
    void ReleaseConnection() noexcept override;

  private:
    /** One call that lets DuckDB work for this cursor, which the census shows and the database's time limit
     * cuts. */
    class Work;

    ResultHolder Execute(Work& work, const std::string& sql, const ParameterValues& values);

    /** Null once the cursor is closed. Changed under the engine lock and the mutex of the result: either is
       enough to read it. */
    std::unique_ptr<SideConnection> side_;
    std::atomic<bool> is_stopped_{false};
    /** Why there are no further rows, if the query has failed. */
    std::exception_ptr failure_;
};

}  // namespace mduckdb
