#pragma once

#include <cstdint>

#include "nbx/export.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBProgress` for `QueryInterface` of a database. */
constexpr uint32_t kDuckDBProgressInterfaceId = 7333;

/** How far a database's running call is. */
struct DuckDBProgress {
    /** A call of the database, or of one of its statements, lets DuckDB work now. */
    bool is_running = false;
    /** The part of the running statement that is done, from 0 to 1, as DuckDB estimates it; -1 if unknown:
       nothing runs or is done yet, progress is not tracked, or DuckDB cannot tell. It never falls during
       a statement. */
    double share = -1;
    /** DuckDB's count of the rows that the statement's sources have delivered, of how many: an estimate. Both
       are 0 while the share is unknown. */
    uint64_t rows = 0;
    uint64_t total_rows = 0;
};

/** The progress of one database object: of the scripts, queries and statements that run on its connection.
   Backups and snapshots, which have connections of their own, do not count. */
class NBX_API I_DuckDBProgress {
  public:
    virtual ~I_DuckDBProgress();
    /** Whether DuckDB counts; off at first. Applies to calls that begin afterwards, and is kept when the
       database closes. While it is on, DuckDB's settings `enable_progress_bar` and
       `enable_progress_bar_print` of the connection are true and false. From any thread. */
    virtual void put_IsTracked(bool is_tracked) = 0;
    virtual bool get_IsTracked() = 0;
    /** From any thread, at any time; it waits neither for the engine lock nor for DuckDB. */
    virtual DuckDBProgress get_Progress() = 0;
};

}  // namespace nbx::mrsql
