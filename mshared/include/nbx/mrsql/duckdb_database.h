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

/** How a database is opened. A number of 0 and an empty text leave DuckDB's default in force. `Create`
    ignores `read_write`. */
struct DuckDBDatabaseOptions {
    /** False opens the file for reading only. */
    bool read_write = true;
    /** Part of the host's record; the module does not read it. */
    bool reserved = false;
    /** Threads that DuckDB uses for queries, at most 1024; an `Open` or `Create` with more fails. */
    uint32_t threads = 0;
    /** Limit of DuckDB's memory, in megabytes. */
    uint32_t max_memory_mb = 0;
    /** Folder for data that does not fit into memory. */
    String temp_directory;
    /** False keeps SQL away from files, other databases and extensions. */
    bool enable_external_access = true;
    /** Folders as DuckDB's settings of the same names. */
    String home_directory;
    String secret_directory;
    String extension_directory;
};

/** One DuckDB database (a file or ":memory:") with one connection of its own.

    Objects on one path share DuckDB's engine; each has its own connection and transaction. The object does
    not own its statements, cursors and results: `Close` and the destructor detach them, after which their
    operations fail. References to them may outlive the database.

    Threads: every operation may be called on any thread and takes the global engine lock, except `Interrupt`,
    `get_IsOpen` and `get_IsReadOnly`, which never wait for it. `Backup` releases the lock while DuckDB
    exports. Errors: `xDuckDBError` for what DuckDB reports and for wrong use, "DuckDBDatabase is not open" on
    a closed object; `xException` 0x99000 if the file cannot be opened, other codes for failed file
    operations; `xInterruptError` if `Interrupt` ended the operation. */
class NBX_API I_DuckDBDatabase : public I_Unknown {
  public:
    I_DuckDBDatabase() = default;
    ~I_DuckDBDatabase() override;

    /** Block size in bytes of a file that `Create` creates; 0 means DuckDB's default. Kept until it is set
        again. */
    virtual void put_BlockSize(uint32_t block_size) = 0;
    /** Number of objects of this module that have the path open, this one included. */
    virtual uint32_t get_ConnectionCount() = 0;
    /** Whether the file exists now; false for ":memory:" and with credentials. */
    virtual bool get_Exists() = 0;
    virtual bool get_IsOpen() = 0;
    /** Whether the open database can only be read, as requested or because `Open` could not open it for
        writing; false while it is closed. */
    virtual bool get_IsReadOnly() = 0;
    /** The text of the location, as error messages show it. */
    virtual String get_Path() = 0;
    /** The path text by which objects share an engine. */
    virtual String get_Key() = 0;
    /** A MotherDuck token and the user agent that is sent with it, for `Open`. An empty token means none;
        then the user agent is not used either. Kept until they are set again. */
    virtual void put_Credentials(String token, String user_agent) = 0;
    /** Storage version of a file that `Create` creates, such as v1.2.0; empty means DuckDB's default. Kept
        until it is set again. */
    virtual void put_StorageVersion(String version) = 0;
    /** Options for the next `Open` or `Create`; copied. Set them while the object is closed: closing forgets
        them, and both operations close an open object first. */
    virtual void put_Options(const DuckDBDatabaseOptions& options) = 0;
    /** Creates and opens a new database. An existing file is deleted first, unless other objects have it
        open: then this object shares it. Options, storage version and block size that no file can have are
        refused before that. Closes the object first. */
    virtual void Create() = 0;
    /** Opens an existing database. If it cannot be opened for writing it is silently opened for reading;
        check `get_IsReadOnly`. Closes the object first. */
    virtual void Open() = 0;
    /** Detaches all statements, cursors and results and closes the connection, after waiting for a running
        `Backup`. The last object on the path also closes the engine. Does nothing if the object is closed. */
    virtual void Close() = 0;
    /** Closes the object and deletes the file. Throws `xDuckDBError` if other objects have it open and
        `xException` if the file does not exist or cannot be deleted. An in-memory database is only closed. */
    virtual void Drop() = 0;
    /** Exports the database as Parquet files into a new folder. It is created inside the server's backup
        folder if the host has set one (`gServerBackupLocation`), otherwise inside `folder`, or inside the
        folder "Backup" beside the database if `folder` is null. Returns when the disk holds all of it. An
        export into a folder that has one already replaces it; if it fails, neither can be restored. */
    virtual void Backup(smart_ptr<I_Location> folder) = 0;
    /** Returns a statement with a copy of the text, which is parsed when it is first prepared. The caller
        owns the reference. */
    virtual smart_ptr<I_DuckDBStatement> CreateStatement(const String& sql) = 0;
    /** The list of objects that `Close` detaches. It holds plain pointers, no references. Objects of this
        module add and remove themselves; hosts need not call these. `RemoveStatement` throws `xDuckDBError`
        if the database is closed or the statement is not in the list; the others ignore that. */
    virtual void RemoveStatement(I_DuckDBStatement* statement) = 0;
    virtual void AddCursor(I_DuckDBCursor* cursor) = 0;
    virtual void RemoveCursor(I_DuckDBCursor* cursor) = 0;
    virtual void AddQueryResult(I_DuckDBQueryResult* result) = 0;
    virtual void RemoveQueryResult(I_DuckDBQueryResult* result) = 0;
    /** Interrupts the operation that runs now on this object's connection, if the host permits it (see
        `gpIsLocalSqlCall_PTR`). May be called on any thread while the object exists; returns at once and does
        nothing on a closed object. */
    virtual void Interrupt() = 0;
    /** Runs all statements of the text and returns the sum of their changed rows. If the execution of one
        fails, a transaction that the script left open is rolled back; the rest does not run. With parameters
        (neither null nor empty) the text must be one statement; element i is bound to parameter i + 1.
        `parameters` is not kept. */
    virtual int64_t SqlExecute(const String& sql, smart_ptr<ValueRow> parameters) = 0;
    /** Runs the text like `SqlExecute` and returns the outcome of its first statement, never null. The
        caller owns the reference. */
    virtual smart_ptr<I_DuckDBQueryResult> SqlQuery(const String& sql, uint32_t cursor_location,
                                                    smart_ptr<ValueRow> parameters) = 0;
    /** Runs the text like `SqlExecute` and returns its rows, never null. Throws `xDuckDBError` unless the
        text is one statement that returns rows. The caller owns the reference. */
    virtual smart_ptr<I_DuckDBCursor> SqlSelect(const String& sql, uint32_t cursor_location,
                                                smart_ptr<ValueRow> parameters) = 0;
};

}  // namespace nbx::mrsql
