#pragma once

#include <cstdint>

#include "nbx/array.h"
#include "nbx/export.h"
#include "nbx/location.h"
#include "nbx/unknown.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBProcedureLimits` for `QueryInterface` of the extension. */
constexpr uint32_t kDuckDBProcedureLimitsInterfaceId = 7310;

/** The most that one call of a procedure may use. A number of 0, a null and an empty array set no limit. */
struct DuckDBProcedureLimits {
    /** Memory of the call's engine, in megabytes. The rows count, and are written to the temporary directory
        when they exceed it. */
    uint32_t memory_mb = 0;
    /** Threads of the call's engine; more than 1024 become 1024. */
    uint32_t threads = 0;
    /** Milliseconds from the beginning of the call. After that the query is cut, and no row is read any more:
        both are errors that name the limit. */
    uint32_t time_ms = 0;
    /** What one call may write to the temporary directory, in megabytes. */
    uint32_t temp_directory_mb = 0;
    /** An existing folder for rows that exceed the memory. The module creates a folder in it that only this
        user can read, with a folder in that for each call, and removes them. */
    smart_ptr<I_Location> temp_directory;
    /** Existing folders. A call reads files in them and in their subfolders only, has no network, loads no
        extension and cannot change its settings. Links are followed first: a link that leads outside is
        rejected. `fetch_duckdb` then does not read a file that this process has open for writing. */
    smart_ptr<ArrayOfSmartPtrs<smart_ptr<I_Location>>> allowed_directories;
};

/** Limits for the calls of procedures. From any thread, without the engine lock. */
class NBX_API I_DuckDBProcedureLimits {
  public:
    virtual ~I_DuckDBProcedureLimits();
    /** Sets all limits for the calls that begin from now on. Throws `xDuckDBError` if a folder does not exist
        or cannot be used, and then changes nothing. */
    virtual void put_Limits(const DuckDBProcedureLimits& limits) = 0;
    /** The limits for a call that begins now. */
    virtual DuckDBProcedureLimits get_Limits() = 0;
};

}  // namespace nbx::mrsql
