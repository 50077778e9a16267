#include "statement_fixture.h"

#include "base/engine_lock.h"
#include "base/text.h"

namespace mduckdb::test {

std::ostream& operator<<(std::ostream& out, const Thrown& thrown) {
    if (thrown.exception.empty()) {
        return out << "nothing thrown";
    }
    return out << thrown.exception << " 0x" << std::hex << thrown.code << std::dec << " [" << thrown.name
               << "] [" << thrown.message << "]";
}

std::string Utf8(const String& text) {
    return ToUtf8(text);
}

String Text(std::string_view utf8) {
    return FromUtf8(utf8);
}

namespace {

Thrown Facts(const char* exception, const nbx::xException& error) {
    return {exception, error.get_Code(), Utf8(error.get_Text(0)), Utf8(error.get_Text(1))};
}

Value Adopt(I_Value* value) {
    return Value::Adopt(value);
}

}  // namespace

Thrown DescribeThrown(std::exception_ptr thrown) {
    try {
        std::rethrow_exception(std::move(thrown));
    } catch (const nbx::mrsql::xDuckDBError& error) {
        return Facts("xDuckDBError", error);
    } catch (const nbx::xInterruptError& error) {
        return Facts("xInterruptError", error);
    } catch (const nbx::xFeatureError& error) {
        return Facts("xFeatureError", error);
    } catch (const nbx::xException& error) {
        return Facts("xException", error);
    } catch (const std::exception& error) {
        return {"std::exception", 0, "", error.what()};
    } catch (...) {
        return {"something else", 0, "", ""};
    }
}

Thrown DuckDBError(std::string name, std::string message) {
    return {"xDuckDBError", 0x72501, std::move(name), std::move(message)};
}

Thrown MemoryError(std::string message) {
    return DuckDBError(":memory:", std::move(message));
}

Table RunDirectly(duckdb_connection connection, const std::string& sql) {
    Table table;
    ResultHolder result;
    if (duckdb_query(connection, sql.c_str(), result.Receive()) != DuckDBSuccess) {
        ADD_FAILURE() << sql << ": " << duckdb_result_error(result.get());
        return table;
    }
    const idx_t columns = duckdb_column_count(result.get());
    const idx_t rows = duckdb_row_count(result.get());
    for (idx_t row = 0; row < rows; ++row) {
        table.emplace_back();
        for (idx_t column = 0; column < columns; ++column) {
            const TextHolder text(duckdb_value_varchar(result.get(), column, row));
            table.back().emplace_back(text ? text.get() : "NULL");
        }
    }
    return table;
}

Value Boolean(bool content) {
    return Adopt(nbx::CreateValueBoolean(true, &content, nullptr));
}

Value Long(int32_t content) {
    return Adopt(nbx::CreateValueLong(true, &content, nullptr));
}

Value LLong(int64_t content) {
    return Adopt(nbx::CreateValueLLong(true, &content, nullptr));
}

Value Double(double content) {
    return Adopt(nbx::CreateValueDouble(true, &content, nullptr));
}

Value Str(std::string_view utf8) {
    return Adopt(nbx::CreateValueString(true, &utf8, nullptr));
}

Value Json(std::string_view utf8) {
    return Adopt(nbx::CreateValueJSON(true, &utf8, nullptr));
}

Value Bytes(std::string_view bytes) {
    const uint64_t declared_size = bytes.size();
    return Adopt(nbx::CreateValueFixedBinary(true, &bytes, &declared_size));
}

Value Date(int32_t year, uint8_t month, uint8_t day) {
    const nbx::DateContent content{year, month, day};
    return Adopt(nbx::CreateValueDate(true, &content, nullptr));
}

Value TimeOfDay(uint8_t hours, uint8_t minutes, uint8_t seconds, uint16_t milliseconds) {
    const nbx::TimeContent content{hours, minutes, seconds, milliseconds};
    return Adopt(nbx::CreateValueTime(true, &content, nullptr));
}

Value DateTime(nbx::DateContent date, nbx::TimeContent time) {
    const nbx::DateTimeContent content{date, time};
    return Adopt(nbx::CreateValueDateTime(true, &content, nullptr));
}

Value Array(uint32_t element_type_code, const std::vector<Value>& elements) {
    Value value = Adopt(nbx::CreateValueArray(element_type_code));
    auto* array = static_cast<nbx::I_ArrayValue*>(value->QueryInterface(nbx::kArrayInterfaceId));
    for (const Value& element : elements) {
        array->Append(element);
    }
    return value;
}

Value NullOf(uint32_t type_code) {
    Value value = Adopt(nbx::CreateValueOfType(type_code, true));
    value->put_IsNull(true);
    return value;
}

smart_ptr<ValueRow> Row(std::initializer_list<Value> values) {
    auto row = nbx::MakeObject<ValueRow>();
    for (const Value& value : values) {
        row->Append(value);
    }
    return row;
}

smart_ptr<ValueRows> Rows(std::initializer_list<smart_ptr<ValueRow>> rows) {
    auto set = nbx::MakeObject<ValueRows>();
    for (const smart_ptr<ValueRow>& row : rows) {
        set->Append(row);
    }
    return set;
}

StatementTest::StatementTest()
    : database_(nbx::MakeObject<DuckDBDatabase>(nbx::CreateLocation(Text(":memory:")))) {
    database_->Open();
    Direct("CREATE TABLE seen (type VARCHAR, text VARCHAR)");
}

StatementTest::~StatementTest() {
    database_->Close();
}

smart_ptr<I_DuckDBStatement> StatementTest::Make(std::string_view sql) {
    return database_->CreateStatement(Text(sql));
}

smart_ptr<I_DuckDBStatement> StatementTest::Prepared(std::string_view sql) {
    auto statement = Make(sql);
    statement->PrepareNext();
    return statement;
}

duckdb_connection StatementTest::Connection() {
    EngineLockScope lock;
    return *database_->get_Link()->get_Connection();
}

Table StatementTest::Direct(const std::string& sql) {
    return RunDirectly(Connection(), sql);
}

std::string StatementTest::Scalar(const std::string& sql) {
    const Table table = Direct(sql);
    return table.empty() ? "no rows" : table[0][0];
}

smart_ptr<I_DuckDBStatement> StatementTest::Probe() {
    // `typeof($1)` of a text parameter is an internal error that ends the engine; behind a subquery it is
    // not.
    return Prepared("INSERT INTO seen SELECT typeof(v), CAST(v AS VARCHAR) FROM (SELECT $1 AS v)");
}

std::pair<std::string, std::string> StatementTest::ReadBack(I_DuckDBStatement& probe) {
    Direct("DELETE FROM seen");
    probe.Execute();
    const Table table = Direct("SELECT type, text FROM seen");
    return table.empty() ? std::pair<std::string, std::string>("no row", "")
                         : std::pair(table[0][0], table[0][1]);
}

std::pair<std::string, std::string> StatementTest::SeenOf(const Value& value) {
    auto probe = Probe();
    probe->BindValue(1, value);
    return ReadBack(*probe);
}

}  // namespace mduckdb::test
