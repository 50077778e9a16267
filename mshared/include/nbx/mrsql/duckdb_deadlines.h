#pragma once

#include <cstdint>

#include "nbx/export.h"

namespace nbx::mrsql {

/** Number of `I_DuckDBDeadlines` for `QueryInterface` of a database. */
constexpr uint32_t kDuckDBDeadlinesInterfaceId = 7311;

/** The time limit of one database object.

    It applies to each call of the database, of its statements and of its query results that lets DuckDB work:
   a script, a preparation, an execution with all its rows of parameters, the reading of a client cursor, a
   backup, a snapshot. `TryExecuteAll` gives each of its statements the whole time. The time begins when the
   call has the engine lock. Opening and closing have no limit, and the rows of a server cursor are complete
   before the first is read.

    A call that is cut throws `xDuckDBError` with the code 0x72501 and a text of its own, unless it was
   interrupted too. The connection stays usable; transactions are treated as after any other failed statement.
   A limit concerns no other object, also none that shares the engine. */
class NBX_API I_DuckDBDeadlines {
  public:
    virtual ~I_DuckDBDeadlines();
    /** In milliseconds; 0, the initial value, for none. From any thread. */
    virtual uint64_t get_TimeLimit() = 0;
    /** For calls that begin from now on. It is kept when the database closes. From any thread. */
    virtual void put_TimeLimit(uint64_t milliseconds) = 0;
};

}  // namespace nbx::mrsql
