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

/** The module's root object. */
class NBX_API I_DuckDBExtension : public I_Unknown {
  public:
    I_DuckDBExtension() = default;
    ~I_DuckDBExtension() override;

    /** Version of the DuckDB library, as "v1.5.6"; static text. */
    virtual const char* get_LibraryVersion() = 0;
    /** A database object on the location, closed. Throws `xDBError` 0x51501 for a null location. */
    virtual smart_ptr<I_DuckDBDatabase> CreateDatabase(smart_ptr<I_Location> location) = 0;
    /** The rows of a client cursor; null for any other. */
    virtual smart_ptr<ValueRows> get_ClientCursorRows(smart_ptr<I_DuckDBCursor> cursor) = 0;
    virtual bool IsClientCursor(smart_ptr<I_DuckDBCursor> cursor) = 0;
    /** Whether a database object of this module has registered this key (`get_Key`, compared as text) and
       still uses it. Holds the engine lock for the look-up. */
    virtual bool IsDatabaseOpen(const String& path) = 0;
    /** Whether the file has DuckDB's mark, is empty, or is open here as a database. Never throws: a file that
        cannot be read is none. */
    virtual bool IsDuckDBFile(smart_ptr<I_Location> location) = 0;
    /** Whether the path is ":memory:". */
    virtual bool IsInMemoryPath(const String& path) = 0;
    /** Recreates the database from a backup folder and returns it closed. */
    virtual smart_ptr<I_DuckDBDatabase> RestoreDatabase(smart_ptr<I_Location> database_location,
                                                        smart_ptr<I_Location> backup_folder) = 0;
};

}  // namespace nbx::mrsql
