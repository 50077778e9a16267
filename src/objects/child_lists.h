#pragma once

#include <list>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/engine_lock.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "nbx/mrsql/duckdb_statement.h"
#include "values/host_value_reading.h"

namespace mduckdb {

/** Objects in the order in which they were added. Removing one takes constant time, however many there are.
    Pointers are compared and never dereferenced, so a caller may ask about any pointer. */
template <class T>
class ChildList : nbx::noncopyable {
  public:
    /** Strong guarantee. The same object may be added twice. */
    void Add(T* item) {
        std::list<T*> added(1, item);
        places_.emplace(item, added.begin());
        items_.splice(items_.end(), added);
    }
    /** Whether the object was in the list, or had been unlisted. */
    bool Remove(T* item) noexcept {
        const auto place = places_.find(item);
        if (place == places_.end()) {
            return false;
        }
        unlisted_.erase(item);
        items_.erase(place->second);
        places_.erase(place);
        return true;
    }
    /** Removes the object for queries, but `TakeLast` still returns it. Whether it was in the list. */
    bool Unlist(T* item) { return places_.count(item) > 0 && unlisted_.insert(item).second; }
    /** Removes the object that was added last and returns it; null when the list is empty. */
    T* TakeLast() noexcept {
        if (items_.empty()) {
            return nullptr;
        }
        T* const item = items_.back();
        Remove(item);
        return item;
    }

    std::size_t get_Count() const noexcept { return places_.size(); }
    template <class Visit>
    void ForEach(Visit visit) const {
        for (T* const item : items_) {
            visit(item);
        }
    }

  private:
    std::list<T*> items_;
    std::unordered_set<T*> unlisted_;
    std::unordered_multimap<T*, typename std::list<T*>::iterator> places_;
};

/** A child that lets DuckDB work on a connection of its own, without the engine lock. */
class SideChild {
  public:
    /** From now on the child lets DuckDB begin nothing. Does not wait. */
    virtual void Cut() noexcept NBX_REQUIRES(gEngineLock) = 0;
    /** Whether a thread reads host values for the child, which may wait for the engine lock. A child that was
        cut begins no further reading. */
    virtual const HostValueReading& get_Reading() const noexcept = 0;
    /** Waits until DuckDB has finished the child's work and gives up the connection. If host values are being
        read, their reader gives it up. */
    virtual void Detach() noexcept NBX_REQUIRES(gEngineLock) = 0;

  protected:
    ~SideChild() = default;
};

/** The live statements, cursors, query results and appenders of one database. Holds no references to them:
   each child removes itself when it is destroyed, even if it was closed before, so a list never holds a
   destroyed object. */
class ChildLists : nbx::noncopyable {
  public:
    void Add(nbx::mrsql::I_DuckDBStatement* statement) NBX_REQUIRES(gEngineLock) {
        statements_.Add(statement);
    }
    void Add(nbx::mrsql::I_DuckDBCursor* cursor) NBX_REQUIRES(gEngineLock) { cursors_.Add(cursor); }
    void Add(nbx::mrsql::I_DuckDBQueryResult* result) NBX_REQUIRES(gEngineLock) { results_.Add(result); }
    void Add(SideChild* side) NBX_REQUIRES(gEngineLock) { sides_.Add(side); }

    /** Removes the object from the list at the host's request; whether it was there. The object keeps rows in
        the engine's memory, so it is still notified when the database closes. */
    template <class Child>
    bool Unlist(Child* child) NBX_REQUIRES(gEngineLock) {
        return ListOf(child).Unlist(child);
    }

    /** Whether the object was in the list. */
    bool Remove(nbx::mrsql::I_DuckDBStatement* statement) noexcept NBX_REQUIRES(gEngineLock) {
        return statements_.Remove(statement);
    }
    bool Remove(nbx::mrsql::I_DuckDBCursor* cursor) noexcept NBX_REQUIRES(gEngineLock) {
        return cursors_.Remove(cursor);
    }
    bool Remove(nbx::mrsql::I_DuckDBQueryResult* result) noexcept NBX_REQUIRES(gEngineLock) {
        return results_.Remove(result);
    }

    bool Remove(SideChild* side) noexcept NBX_REQUIRES(gEngineLock) { return sides_.Remove(side); }
    /** The children that may keep a result of DuckDB. */
    uint64_t CountResults() const noexcept NBX_REQUIRES(gEngineLock) {
        return statements_.get_Count() + cursors_.get_Count() + results_.get_Count();
    }
    /** Before the database closes. */
    void CutSides() NBX_REQUIRES(gEngineLock) {
        sides_.ForEach([](SideChild* side) NBX_NO_THREAD_SAFETY_ANALYSIS { side->Cut(); });
    }

    /** Whether to let other threads finish reading host values before the database closes. Not on a thread
        that reads some itself: another one may wait for it in the same way. */
    bool IsReadElsewhere() const NBX_REQUIRES(gEngineLock) {
        bool is_here = false;
        bool is_anywhere = false;
        sides_.ForEach([&](const SideChild* side) {
            is_here = is_here || side->get_Reading().IsHere();
            is_anywhere = is_anywhere || side->get_Reading().IsAnywhere();
        });
        return is_anywhere && !is_here;
    }

    /** Removes every child and detaches it from the database: appenders first, then results, then cursors,
     * then statements, each list from its last entry to its first. */
    void CloseAll() NBX_REQUIRES(gEngineLock) {
        // No references are taken here: a child that another thread is just destroying waits for the engine
        // lock in its destructor, and a reference would bring it to life and destroy it twice.
        while (auto* side = sides_.TakeLast()) {
            side->Detach();
        }
        while (auto* result = results_.TakeLast()) {
            result->Close();
        }
        while (auto* cursor = cursors_.TakeLast()) {
            cursor->Detach();
        }
        while (auto* statement = statements_.TakeLast()) {
            statement->Detach();
        }
    }

  private:
    auto& ListOf(nbx::mrsql::I_DuckDBStatement*) NBX_REQUIRES(gEngineLock) { return statements_; }
    auto& ListOf(nbx::mrsql::I_DuckDBCursor*) NBX_REQUIRES(gEngineLock) { return cursors_; }
    auto& ListOf(nbx::mrsql::I_DuckDBQueryResult*) NBX_REQUIRES(gEngineLock) { return results_; }

    ChildList<nbx::mrsql::I_DuckDBStatement> statements_ NBX_GUARDED_BY(gEngineLock);
    ChildList<nbx::mrsql::I_DuckDBCursor> cursors_ NBX_GUARDED_BY(gEngineLock);
    ChildList<nbx::mrsql::I_DuckDBQueryResult> results_ NBX_GUARDED_BY(gEngineLock);
    ChildList<SideChild> sides_ NBX_GUARDED_BY(gEngineLock);
};

}  // namespace mduckdb
