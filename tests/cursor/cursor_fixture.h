#pragma once

#include <gtest/gtest.h>

#include <string>

#include "base/engine_lock.h"
#include "base/holders.h"
#include "base/text.h"
#include "extension/extension.h"
#include "nbx/exception.h"
#include "nbx/mrsql/registry.h"
#include "objects/cursor.h"
#include "objects/database.h"
#include "objects/query_result.h"
#include "support/value_description.h"

namespace mduckdb {

using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::kClientCursor;
using nbx::mrsql::kServerCursor;
using Cursor = nbx::smart_ptr<I_DuckDBCursor>;

/** An open in-memory database. Tests run queries on its connection as the module does. */
class OpenedDatabase {
  public:
    explicit OpenedDatabase(const std::string& path = ":memory:") {
        if (!nbx::mrsql::GetDuckDBExtension()) {
            nbx::mrsql::SetDuckDBExtension(MakeExtension());
        }
        database_ = nbx::MakeObject<DuckDBDatabase>(nbx::CreateLocation(FromUtf8(path)));
        path == ":memory:" ? database_->Open() : database_->Create();
    }

    DuckDBDatabase& operator*() const noexcept { return *database_; }
    DuckDBDatabase* operator->() const noexcept { return database_.get(); }
    /** Releases the reference, and destroys the database if it was the last. */
    void Forget() { database_.reset(); }

    duckdb_connection get_Connection() const {
        const EngineLockScope lock;
        return *database_->get_Link()->get_Connection();
    }

    ResultHolder Query(const std::string& sql) const {
        ResultHolder result;
        EXPECT_EQ(duckdb_query(get_Connection(), sql.c_str(), result.Receive()), DuckDBSuccess)
            << sql << "\n"
            << duckdb_result_error(result.get());
        return result;
    }

    /** A result that DuckDB computes while it is fetched, so that fetching can fail. */
    ResultHolder Stream(const std::string& sql) const {
        PreparedHolder prepared;
        EXPECT_EQ(duckdb_prepare(get_Connection(), sql.c_str(), prepared.Receive()), DuckDBSuccess) << sql;
        PendingHolder pending;
        EXPECT_EQ(duckdb_pending_prepared_streaming(prepared.get(), pending.Receive()), DuckDBSuccess) << sql;
        ResultHolder result;
        EXPECT_EQ(duckdb_execute_pending(pending.get(), result.Receive()), DuckDBSuccess) << sql;
        return result;
    }

    Cursor Open(ResultHolder result, uint32_t location) const {
        return MakeCursor(database_->get_Link(), result, location);
    }
    Cursor Select(const std::string& sql, uint32_t location) const { return Open(Query(sql), location); }

  private:
    nbx::smart_ptr<DuckDBDatabase> database_;
};

/** Runs `operation` and returns its exception as "code|database|message"; empty if it does not throw. */
template <class Operation>
std::string ErrorOf(Operation operation) {
    try {
        operation();
        return "";
    } catch (const nbx::xException& error) {
        char code[16];
        std::snprintf(code, sizeof(code), "%x", error.get_Code());
        return std::string(code) + "|" + ToUtf8(error.get_Text(0)) + "|" + ToUtf8(error.get_Text(1));
    }
}

/** What a valid cursor of a database in memory throws. */
inline std::string CursorError(const std::string& message) {
    return "72501|:memory:|" + message;
}
inline const std::string kInvalidCursor = "72501|unknown|DuckDBCursor is invalid";

inline std::string DescribeField(I_DuckDBCursor& cursor, uint32_t column) {
    return Describe(cursor.get_Value(column).get());
}

/** The failure that ended the rows, or the empty text. */
inline std::string FetchErrorOf(I_DuckDBCursor& cursor) {
    const auto* status =
        static_cast<nbx::mrsql::I_FetchStatus*>(cursor.QueryInterface(nbx::mrsql::kFetchStatusInterfaceId));
    return status != nullptr ? ToUtf8(status->get_FetchError()) : "no fetch status";
}

}  // namespace mduckdb
