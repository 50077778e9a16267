#pragma once

#include <atomic>
#include <memory>

#include "base/engine_lock.h"
#include "nbx/array.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "nbx/mrsql/duckdb_statement.h"

namespace mduckdb {

/** The live statements, cursors and query results of one database.

    Shared by the database and its children: a child keeps it for its whole life and leaves it when it
    is destroyed, also when it was closed before and has forgotten its database, so that no list ever
    holds a dead object. Holds no references to the children. */
class ChildLists : nbx::noncopyable {
  public:
    void Add(nbx::mrsql::I_DuckDBStatement* statement) NBX_REQUIRES(gEngineLock) {
        statements_.Add(statement);
    }
    void Add(nbx::mrsql::I_DuckDBCursor* cursor) NBX_REQUIRES(gEngineLock) { cursors_.Add(cursor); }
    void Add(nbx::mrsql::I_DuckDBQueryResult* result) NBX_REQUIRES(gEngineLock) { results_.Add(result); }

    /** Tells whether the object was in the list. */
    bool Remove(nbx::mrsql::I_DuckDBStatement* statement) NBX_REQUIRES(gEngineLock) {
        return statements_.Remove(statement);
    }
    bool Remove(nbx::mrsql::I_DuckDBCursor* cursor) NBX_REQUIRES(gEngineLock) {
        return cursors_.Remove(cursor);
    }
    bool Remove(nbx::mrsql::I_DuckDBQueryResult* result) NBX_REQUIRES(gEngineLock) {
        return results_.Remove(result);
    }

    /** The database is being destroyed. A child that was taken out of the lists and lives on must not reach
        it. */
    void Orphan() noexcept { is_orphaned_.store(true); }
    bool get_IsOrphaned() const noexcept { return is_orphaned_.load(); }

    /** Takes every child out, results first, then cursors, then statements, each list from its last
        entry to its first, and has it give up the database. */
    void CloseAll() NBX_REQUIRES(gEngineLock);

  private:
    template <class T>
    struct List {
        using Items = nbx::ArrayOfPtrs<T*>;
        nbx::smart_ptr<Items> items;

        void Add(T* item) {
            if (!items) {
                items = nbx::MakeObject<Items>();
            }
            items->Append(item);
        }
        bool Remove(T* item) { return items && items->Remove(item); }
        T* TakeLast() { return items && !items->get_IsEmpty() ? items->TakeLast() : nullptr; }
    };

    std::atomic<bool> is_orphaned_{false};
    List<nbx::mrsql::I_DuckDBStatement> statements_ NBX_GUARDED_BY(gEngineLock);
    List<nbx::mrsql::I_DuckDBCursor> cursors_ NBX_GUARDED_BY(gEngineLock);
    List<nbx::mrsql::I_DuckDBQueryResult> results_ NBX_GUARDED_BY(gEngineLock);
};

}  // namespace mduckdb
