#pragma once

#include "nbx/export.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/string.h"
#include "nbx/unknown.h"
#include "nbx/value.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBExtension` for `QueryInterface`. */
constexpr uint32_t kDuckDBExtensionInterfaceId = 7230;

/** The module's root object, which it registers with `SetDuckDBExtension`. It has no state of its own and may
    be used from any thread. */
class NBX_API I_DuckDBExtension : public I_Unknown {
  public:
    I_DuckDBExtension() = default;
    ~I_DuckDBExtension() override;

    /** Version of the DuckDB library, such as "v1.5.6": NUL-terminated, static text. */
    virtual const char* get_LibraryVersion() = 0;
    /** Returns a new, closed database object for the location; the file need not exist. Throws `xDBError`
        0x51501 if the location is null. */
    virtual smart_ptr<I_DuckDBDatabase> CreateDatabase(smart_ptr<I_Location> location) = 0;
    /** The rows of a client cursor, the same row set each time; null for any other cursor and for null. Works
        on a closed cursor. The first call builds the row set, so it is subject to the cursor's rule of one
        thread at a time. */
    virtual smart_ptr<ValueRows> get_ClientCursorRows(smart_ptr<I_DuckDBCursor> cursor) = 0;
    /** Whether this module created the cursor as a client cursor; false for null. */
    virtual bool IsClientCursor(smart_ptr<I_DuckDBCursor> cursor) = 0;
    /** Whether a database object of this module has registered this key (`get_Key`, compared as text) and
        still uses it. Holds the engine lock for the look-up. */
    virtual bool IsDatabaseOpen(const String& path) = 0;
    /** Whether the file has DuckDB's mark, is empty, or is open here as a database. It returns false for
        a file that cannot be read and for null, and throws nothing but `std::bad_alloc`. */
    virtual bool IsDuckDBFile(smart_ptr<I_Location> location) = 0;
    /** Whether the path is exactly ":memory:". */
    virtual bool IsInMemoryPath(const String& path) = 0;
    /** Recreates the database from a backup folder and returns it closed, with a reference for the caller. An
        existing database at the location is replaced at the very end, so a failed restore leaves it
        unchanged. Throws `xDBError` 0x51501 if the database's location is null, 0x66000 if the folder is null
        or does not exist, `xDuckDBError` if the database is in use or DuckDB fails, and `xException` if the
        location cannot be used. */
    virtual smart_ptr<I_DuckDBDatabase> RestoreDatabase(smart_ptr<I_Location> database_location,
                                                        smart_ptr<I_Location> backup_folder) = 0;
};

}  // namespace nbx::mrsql
