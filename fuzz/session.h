#pragma once

#include <string>
#include <string_view>

#include "nbx/exception.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/value.h"

namespace fuzz {

using nbx::smart_ptr;
using Value = smart_ptr<nbx::I_Value>;

/** A database in memory without access to files and with little memory. */
class Session {
  public:
    /** For each statement; 0 for no limit, which makes outcomes the same on a busy machine. */
    explicit Session(uint64_t time_limit_ms = 0);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** The one that inputs share. */
    static Session& Shared();

    nbx::mrsql::I_DuckDBDatabase& operator*() const { return *database_; }
    nbx::mrsql::I_DuckDBDatabase* operator->() const { return database_.get(); }

    /** Runs it; false when it throws an exception of the host. Others pass. After an internal error of
       DuckDB, which ends an engine, there is a new one. */
    template <class Action>
    bool Try(Action action) {
        try {
            action();
            return true;
        } catch (const nbx::xException& error) {
            ReopenAfter(error);
            return false;
        }
    }

    /** The rows of a query with the value as its parameter. */
    smart_ptr<nbx::mrsql::I_DuckDBCursor> Select(std::string_view sql, uint32_t location,
                                                 const Value& parameter);
    void Run(const std::string& sql) { database_->SqlExecute(Text(sql), nullptr); }

    static nbx::String Text(std::string_view utf8);

  private:
    void Open();
    void ReopenAfter(const nbx::xException& error);

    smart_ptr<nbx::mrsql::I_DuckDBDatabase> database_;
};

/** Reads the rows that are left, at most `most`, each value as its text; the number of rows. */
uint64_t ReadAll(nbx::mrsql::I_DuckDBCursor& cursor, uint64_t most = 100);

Value Adopt(nbx::I_Value* value);
Value MakeText(std::string_view utf8);
Value MakeJson(std::string_view utf8);
smart_ptr<nbx::ValueRow> MakeRow(const Value& value);

}  // namespace fuzz
