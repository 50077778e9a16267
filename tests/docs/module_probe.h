#pragma once

#include <string>
#include <string_view>

#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_extension.h"
#include "nbx/mrsql/duckdb_statement.h"
#include "nbx/string.h"
#include "nbx/value.h"
#include "table/function_table.h"

namespace mduckdb_docs {

using nbx::smart_ptr;

/** A text as code in a cell of a table; one with bytes that no page shows, in hexadecimal. */
std::string Code(const std::string& text);
using nbx::FromUtf8;
using nbx::ToUtf8;

/** A module loaded as the server loads it. The process's extension object is that of the module loaded
    last. */
class LoadedModule {
  public:
    /** Throws `std::runtime_error`. */
    explicit LoadedModule(const std::string& file);

    /** The one cell of the first row of a table, as "`host type` text"; the error instead of a row. */
    std::string FetchCell(const std::string& database_file, const std::string& table) const;

  private:
    mduckdb_host::ProcedureRegistry registry_;
};

/** What a host receives for one cell, or what DuckDB received for one parameter. */
struct Answer {
    bool is_error = false;
    std::string kind;
    std::string text;
    smart_ptr<nbx::I_Value> value;
};

/** Uses the databases of the module that was loaded last. */
class DatabaseProbe {
  public:
    /** Creates a new database file. */
    explicit DatabaseProbe(const std::string& file);
    ~DatabaseProbe();
    DatabaseProbe(const DatabaseProbe&) = delete;
    DatabaseProbe& operator=(const DatabaseProbe&) = delete;

    void Run(const std::string& sql);
    /** The one cell of a query, through a cursor. */
    Answer Select(const std::string& sql, smart_ptr<nbx::I_Value> parameter = {});
    /** The one cell of a query whose parameter `bind` binds. */
    template <class Bind>
    Answer SelectBound(const std::string& sql, Bind&& bind);

  private:
    Answer ReadOnlyCell(nbx::mrsql::I_DuckDBCursor& cursor);
    template <class Query>
    Answer Ask(Query&& query);

    smart_ptr<nbx::mrsql::I_DuckDBDatabase> database_;
};

/** Message of an exception of the module, without DuckDB's JSON around it. */
std::string ErrorText(const std::exception& error);

template <class Query>
Answer DatabaseProbe::Ask(Query&& query) {
    try {
        return ReadOnlyCell(*query());
    } catch (const std::exception& error) {
        return Answer{true, "error", ErrorText(error), {}};
    }
}

template <class Bind>
Answer DatabaseProbe::SelectBound(const std::string& sql, Bind&& bind) {
    return Ask([&] {
        const auto statement = database_->CreateStatement(FromUtf8(sql));
        statement->PrepareNext();
        bind(*statement);
        return statement->OpenCursor(nbx::mrsql::kClientCursor);
    });
}

}  // namespace mduckdb_docs
