#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "nbx/mrsql/duckdb_statement.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBDatabase` for `QueryInterface`. */
constexpr uint32_t kDuckDBDatabaseInterfaceId = 7240;

/** How a database is opened. A number of 0 and an empty text leave DuckDB's default in force. */
struct DuckDBDatabaseOptions {
    /** False opens the file for reading only. */
    bool read_write = true;
    /** Kept for the host; not read here. */
    bool reserved = false;
    uint32_t threads = 0;
    uint32_t max_memory_mb = 0;
    String temp_directory;
    bool enable_external_access = true;
    String home_directory;
    String secret_directory;
    String extension_directory;
};

/** One DuckDB database (a file or ":memory:") with one connection of its own.

    Objects on one path share DuckDB's engine; each has its own connection and transaction. All
    operations but `Interrupt` take the global engine lock; `Interrupt` may come from any thread while
    an operation runs. Failures: `xDuckDBError`, `xException` 0x99000 when the file cannot be opened,
    `xInterruptError` after `Interrupt`. */
class NBX_API I_DuckDBDatabase : public I_Unknown {
  public:
    I_DuckDBDatabase() = default;
    ~I_DuckDBDatabase() override;

    /** Block size in bytes of a file that `Create` makes; 0 means DuckDB's default. */
    virtual void put_BlockSize(uint32_t block_size) = 0;
    /** How many objects of this process have the path open. */
    virtual uint32_t get_ConnectionCount() = 0;
    virtual bool get_Exists() = 0;
    virtual bool get_IsOpen() = 0;
    virtual bool get_IsReadOnly() = 0;
    /** The location's text, as it stands in error messages. */
    virtual String get_Path() = 0;
    /** The path text by which objects share an engine. */
    virtual String get_Key() = 0;
    virtual void put_Credentials(String token, String user_agent) = 0;
    /** Storage version of a file that `Create` makes, as v1.2.0; empty means DuckDB's default. */
    virtual void put_StorageVersion(String version) = 0;
    /** For the one next `Open` or `Create`. */
    virtual void put_Options(const DuckDBDatabaseOptions& options) = 0;
    /** Makes a new database; a file that is there is deleted first unless somebody has it open. */
    virtual void Create() = 0;
    virtual void Open() = 0;
    /** Closes everything made from this database; no error when it is closed. */
    virtual void Close() = 0;
    /** Closes and deletes the file; refused while other objects have it open. */
    virtual void Drop() = 0;
    /** Exports everything into a new folder inside `folder`. */
    virtual void Backup(smart_ptr<I_Location> folder) = 0;
    virtual smart_ptr<I_DuckDBStatement> CreateStatement(const String& sql) = 0;
    virtual void RemoveStatement(I_DuckDBStatement* statement) = 0;
    virtual void AddCursor(I_DuckDBCursor* cursor) = 0;
    virtual void RemoveCursor(I_DuckDBCursor* cursor) = 0;
    virtual void AddQueryResult(I_DuckDBQueryResult* result) = 0;
    virtual void RemoveQueryResult(I_DuckDBQueryResult* result) = 0;
    /** Cuts the statement that runs now, if the host allows it. From any thread. */
    virtual void Interrupt() = 0;
    /** Runs a script; gives the sum of changed rows. With parameters: one statement. */
    virtual int64_t SqlExecute(const String& sql, smart_ptr<ValueRow> parameters) = 0;
    virtual smart_ptr<I_DuckDBQueryResult> SqlQuery(const String& sql, uint32_t cursor_location,
                                                    smart_ptr<ValueRow> parameters) = 0;
    /** For a text that returns exactly one set of rows. */
    virtual smart_ptr<I_DuckDBCursor> SqlSelect(const String& sql, uint32_t cursor_location,
                                                smart_ptr<ValueRow> parameters) = 0;
};

}  // namespace nbx::mrsql
