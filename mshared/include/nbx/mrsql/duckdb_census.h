#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/string.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBCensus` for `QueryInterface` of the extension. */
constexpr uint32_t kDuckDBCensusInterfaceId = 7313;

/** One thing that is open, as it was at the moment of the census. */
struct DuckDBCensusLine {
    enum Kind : uint32_t {
        /** A DuckDB engine, with a file or in memory; those of every loaded module are listed. */
        kEngine = 1,
        /** An open database object. */
        kDatabase = 2,
        kStatement = 3,
        kCursor = 4,
        kQueryResult = 5,
        /** A running backup, snapshot or check of a backup. */
        kBackup = 6,
        /** A procedure's call, until the host closes its cursor. */
        kCall = 7,
        /** An appender; its rows are those that it has stored. */
        kAppender = 8,
    };
    enum Flags : uint32_t {
        /** DuckDB is working for it. */
        kIsRunning = 1,
        /** A database whose connection has an open transaction. */
        kIsInTransaction = 2,
        /** An engine or a database that cannot write. */
        kIsReadOnly = 4,
        /** An engine without users: it is being closed, or stays open because others use its file. */
        kWaitsToBeClosed = 8,
        /** An engine that is being opened, or that an internal error has ended. */
        kIsUnusable = 16,
        /** An engine of another copy of DuckDB in this process: its figures are unknown. */
        kIsForeign = 32,
    };
    /** The lock that the process holds on an engine's file. */
    enum Lock : uint32_t { kNoLock = 0, kSharedLock = 1, kExclusiveLock = 2 };

    Kind kind = kEngine;
    uint32_t flags = 0;
    Lock lock = kNoLock;
    /** The number of objects and cursors that use an engine. */
    uint32_t users = 0;
    /** Identifies the thing among those of its kind; never reused. */
    uint64_t number = 0;
    /** The number of the engine that a database uses, of the database that a statement, cursor, query
        result, appender or backup belongs to, and of the engine of a call; 0 when there is none. */
    uint64_t parent = 0;
    /** The path of an engine's file or of a database, without what may hold a secret; the name of a
       procedure. Never the text of a statement or a value. */
    String name;
    uint64_t age_ms = 0;
    /** For how long DuckDB has been working for it; -1 when it is not. */
    int64_t running_ms = -1;
    /** The rows of a cursor, a query result or a call that DuckDB holds, and the memory for them; the memory
        that an engine uses. -1 when unknown. */
    int64_t rows = -1;
    int64_t bytes = -1;
    /** The limits of an engine; 0 when unknown. */
    uint64_t memory_limit = 0;
    uint32_t threads = 0;
};

/** Receives a census. */
class NBX_API I_DuckDBCensusReader {
  public:
    virtual ~I_DuckDBCensusReader();
    /** The line is valid during the call. */
    virtual void Add(const DuckDBCensusLine& line) = 0;
};

/** Lists what this module has open. May be called on any thread, even while statements run: it does not wait
    for a lock that is held while DuckDB or a disk works. */
class NBX_API I_DuckDBCensus {
  public:
    virtual ~I_DuckDBCensus();
    /** Calls the reader for each thing that is open: engines, then databases, then everything else in the
        order in which it was opened. No lock is held meanwhile. Exceptions of the reader pass through. */
    virtual void List(I_DuckDBCensusReader& reader) = 0;
    /** Stops the procedure call with this number, which then fails with "NAME was cut by the host."; false if
        there is no such call or its rows are already complete. */
    virtual bool CutCall(uint64_t number) = 0;
};

}  // namespace nbx::mrsql
