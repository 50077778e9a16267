#pragma once

#include <duckdb.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nbx/exception.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_statement.h"
#include "nbx/value.h"
#include "objects/database.h"

namespace mduckdb::test {

using nbx::I_Value;
using nbx::smart_ptr;
using nbx::String;
using nbx::ValueRow;
using nbx::ValueRows;
using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBQueryResult;
using nbx::mrsql::I_DuckDBStatement;
using Value = smart_ptr<I_Value>;

/** A caught exception: the name of the most derived host class, and its facts. */
struct Thrown {
    std::string exception;
    uint32_t code = 0;
    std::string name;
    std::string message;

    bool operator==(const Thrown& other) const {
        return exception == other.exception && code == other.code && name == other.name &&
               message == other.message;
    }
};
std::ostream& operator<<(std::ostream& out, const Thrown& thrown);

std::string Utf8(const String& text);
String Text(std::string_view utf8);

/** Rethrows what `call` throws as a record; an empty `exception` when it throws nothing. */
Thrown DescribeThrown(std::exception_ptr thrown);
template <class Call>
Thrown Catch(Call&& call) {
    try {
        call();
    } catch (...) {
        return DescribeThrown(std::current_exception());
    }
    return {};
}
/** An `xDuckDBError` 0x72501. */
Thrown DuckDBError(std::string name, std::string message);
const Thrown kDatabaseIsInvalid{"xDuckDBError", 0x72501, "unknown", "DuckDBDatabase is invalid"};
/** What a call on a statement whose database is `:memory:` throws with a text of the module. */
Thrown MemoryError(std::string message);

/** The cells of a query as text, NULL as "NULL", run with the C API alone. */
using Table = std::vector<std::vector<std::string>>;
Table RunDirectly(duckdb_connection connection, const std::string& sql);

// Host values.
Value Boolean(bool content);
Value Long(int32_t content);
Value LLong(int64_t content);
Value Double(double content);
Value Str(std::string_view utf8);
Value Json(std::string_view utf8);
Value Bytes(std::string_view bytes);
Value Date(int32_t year, uint8_t month, uint8_t day);
Value TimeOfDay(uint8_t hours, uint8_t minutes, uint8_t seconds, uint16_t milliseconds);
Value DateTime(nbx::DateContent date, nbx::TimeContent time);
Value Array(uint32_t element_type_code, const std::vector<Value>& elements);
Value NullOf(uint32_t type_code);
smart_ptr<ValueRow> Row(std::initializer_list<Value> values);
smart_ptr<ValueRows> Rows(std::initializer_list<smart_ptr<ValueRow>> rows);

/** An open in-memory database. */
class StatementTest : public ::testing::Test {
  protected:
    StatementTest();
    ~StatementTest() override;

    smart_ptr<I_DuckDBStatement> Make(std::string_view sql);
    /** A new statement whose first statement is prepared. */
    smart_ptr<I_DuckDBStatement> Prepared(std::string_view sql);
    /** Bypasses the module and uses the database's own connection. */
    Table Direct(const std::string& sql);
    std::string Scalar(const std::string& sql);
    /** The raw connection; the database must stay open. */
    duckdb_connection Connection();

    /** A prepared statement with one parameter that records the bound value. */
    smart_ptr<I_DuckDBStatement> Probe();
    /** Executes the probe; returns type and text of the parameter as DuckDB sees it. */
    std::pair<std::string, std::string> ReadBack(I_DuckDBStatement& probe);
    /** Type and text of a host value bound as a parameter. */
    std::pair<std::string, std::string> SeenOf(const Value& value);

    smart_ptr<DuckDBDatabase> database_;
};

}  // namespace mduckdb::test
