#pragma once

#include <string>
#include <vector>

#include "../statement/statement_fixture.h"
#include "nbx/mrsql/duckdb_appender.h"

namespace mduckdb::test {

using nbx::mrsql::DuckDBAppenderOptions;
using nbx::mrsql::DuckDBBytes;
using nbx::mrsql::DuckDBColumnArray;
using nbx::mrsql::I_DuckDBAppender;
using Appender = smart_ptr<I_DuckDBAppender>;

const Thrown kAppenderIsInvalid{"xDuckDBError", 0x72501, "unknown", "DuckDBAppender is invalid"};

/** An open in-memory database with the tables that the tests append to. */
class AppenderTest : public StatementTest {
  protected:
    nbx::mrsql::I_DuckDBAppenders& Appenders() {
        return *static_cast<nbx::mrsql::I_DuckDBAppenders*>(
            database_->QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId));
    }
    Appender Open(std::string_view table, bool in_one_transaction = false) {
        DuckDBAppenderOptions options;
        options.table = Text(table);
        options.in_one_transaction = in_one_transaction;
        return Appenders().CreateAppender(options);
    }
    Appender OpenColumns(std::string_view table, const std::vector<String>& columns) {
        DuckDBAppenderOptions options;
        options.table = Text(table);
        options.columns = columns.data();
        options.column_count = static_cast<uint32_t>(columns.size());
        return Appenders().CreateAppender(options);
    }
};

}  // namespace mduckdb::test
