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
    /** Whether this process has ever looked the path up as a database and it is still in use. */
    virtual bool IsDatabaseOpen(const String& path) = 0;
    /** Whether the file looks like a DuckDB database; true for an empty one. Never throws. */
    virtual bool IsDuckDBFile(smart_ptr<I_Location> location) = 0;
    /** Whether the path is ":memory:". */
    virtual bool IsInMemoryPath(const String& path) = 0;
    /** Makes the database anew from a backup folder; gives it closed. */
    virtual smart_ptr<I_DuckDBDatabase> RestoreDatabase(smart_ptr<I_Location> database_location,
                                                        smart_ptr<I_Location> backup_folder) = 0;
};

}  // namespace nbx::mrsql
