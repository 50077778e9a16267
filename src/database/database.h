#pragma once

#include <duckdb.h>

#include <atomic>
#include <memory>
#include <string_view>

#include "database/child_lists.h"
#include "host/engine_lock.h"
#include "nbx/foreign_plugin.h"
#include "nbx/mrsql/duckdb_database.h"

namespace mduckdb {

/** A connection, shared so that it cannot go away during a call. The holder never disconnects. */
using SharedConnection = std::shared_ptr<duckdb_connection>;
/** An engine, shared likewise. The holder never closes. */
using SharedEngine = std::shared_ptr<duckdb_database>;

class DuckDBDatabase final : public nbx::mrsql::I_DuckDBDatabase,
                             public nbx::ForeignPlugin_imp,
                             nbx::noncopyable {
  public:
    explicit DuckDBDatabase(nbx::smart_ptr<nbx::I_Location> location);
    ~DuckDBDatabase() override;

    uint32_t AddRef() override;
    uint32_t Release() override;
    void* QueryInterface(uint32_t interface_id) override;
    uint32_t get_RefsCount() const override;

    void put_BlockSize(uint32_t block_size) override;
    uint32_t get_ConnectionCount() override;
    bool get_Exists() override;
    bool get_IsOpen() override;
    bool get_IsReadOnly() override;
    nbx::String get_Path() override;
    nbx::String get_Key() override;
    void put_Credentials(nbx::String token, nbx::String user_agent) override;
    void put_StorageVersion(nbx::String version) override;
    void put_Options(const nbx::mrsql::DuckDBDatabaseOptions& options) override;
    void Create() override;
    void Open() override;
    void Close() override;
    void Drop() override;
    void Backup(nbx::smart_ptr<nbx::I_Location> folder) override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> CreateStatement(const nbx::String& sql) override;
    void RemoveStatement(nbx::mrsql::I_DuckDBStatement* statement) override;
    void AddCursor(nbx::mrsql::I_DuckDBCursor* cursor) override;
    void RemoveCursor(nbx::mrsql::I_DuckDBCursor* cursor) override;
    void AddQueryResult(nbx::mrsql::I_DuckDBQueryResult* result) override;
    void RemoveQueryResult(nbx::mrsql::I_DuckDBQueryResult* result) override;
    void Interrupt() override;
    int64_t SqlExecute(const nbx::String& sql, nbx::smart_ptr<nbx::ValueRow> parameters) override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> SqlQuery(
        const nbx::String& sql, uint32_t cursor_location, nbx::smart_ptr<nbx::ValueRow> parameters) override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> SqlSelect(const nbx::String& sql, uint32_t cursor_location,
                                                         nbx::smart_ptr<nbx::ValueRow> parameters) override;

    // For the statements, cursors and results of this database.

    /** The connection, or null when the database is closed. */
    SharedConnection get_Connection() const NBX_REQUIRES(gEngineLock);
    /** The lists in which children stand; a child keeps them for its whole life. */
    const std::shared_ptr<ChildLists>& get_Children() const noexcept { return children_; }
    /** Forgets an interrupt that came before; at the start of every run. */
    void ClearInterrupted() noexcept { is_interrupted_.store(false); }
    /** Throws `xInterruptError` when `Interrupt` was called since; each interrupt is reported once. */
    void ThrowIfInterrupted();
    /** Throws `xDuckDBError` with this database's path and a UTF-8 message. */
    [[noreturn]] void ThrowError(std::string_view message);
    /** Throws "DuckDBDatabase is not open" unless there are an engine and a connection. */
    SharedConnection RequireConnection() NBX_REQUIRES(gEngineLock);
    /** Executes like `duckdb_execute_prepared`, but an `Interrupt` that came before DuckDB's own start
        of the query, at which it clears its own flag, cuts it too. The caller destroys `*out_result`,
        also on failure. */
    duckdb_state ExecutePrepared(duckdb_prepared_statement prepared, duckdb_result* out_result);

  private:
    // (fields to be completed with the implementation)
    std::shared_ptr<ChildLists> children_;
    std::atomic<bool> is_interrupted_{false};
};

}  // namespace mduckdb
