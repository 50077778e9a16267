#include <utility>

#include "appender_fixture.h"
#include "support/hosts_own_value.h"

namespace mduckdb::test {
namespace {

Value OfType(nbx::ValueType type, const char* text) {
    Value value = Value::Adopt(nbx::CreateValueOfType(static_cast<uint32_t>(type), true));
    if (text != nullptr) {
        value->put_Text(Text(text));
    }
    return value;
}

void AddNumbers(std::vector<Value>& values) {
    using nbx::ValueType;
    for (const ValueType type : {ValueType::Boolean, ValueType::Byte, ValueType::Short, ValueType::LLong,
                                 ValueType::ULLong, ValueType::Float, ValueType::Double, ValueType::String}) {
        for (const char* text :
             {"0", "1", "-1", "300", "-3000000000", "18446744073709551615", "2.5", "99999.995"}) {
            values.push_back(OfType(type, text));
        }
        values.push_back(OfType(type, nullptr));
    }
    for (const ValueType type : {ValueType::UShort, ValueType::Medium, ValueType::UMedium, ValueType::Long,
                                 ValueType::ULong, ValueType::LDouble, ValueType::Currency}) {
        values.push_back(OfType(type, "5"));
        values.push_back(OfType(type, "-70000"));
    }
    for (const double number : {0.1, -0.0, 1e-320, 1.7976931348623157e308, 3.5e38}) {
        values.push_back(Double(number));
    }
}

void AddMoments(std::vector<Value>& values) {
    values.insert(
        values.end(),
        {Date(2024, 2, 29), Date(2023, 2, 29), Date(-4000, 1, 1), Date(300000, 12, 31), Date(9999999, 1, 1),
         TimeOfDay(12, 34, 56, 789), TimeOfDay(24, 0, 0, 0), TimeOfDay(24, 0, 0, 1), TimeOfDay(255, 0, 0, 0),
         DateTime({2024, 1, 31}, {23, 59, 59, 999}), DateTime({2024, 1, 31}, {24, 0, 0, 0}),
         DateTime({300000, 1, 1}, {0, 0, 0, 0}), DateTime({1, 1, 1}, {0, 0, 0, 1}),
         DateTime({2024, 13, 1}, {0, 0, 0, 0})});
}

void AddTexts(std::vector<Value>& values) {
    for (const char* text : {"",
                             "Wien",
                             "a text that is longer than twelve bytes, \xC3\xA4\xC3\xB6\xC3\xBC",
                             "true",
                             "12:34:56",
                             "2024-01-31",
                             "2024-01-31 12:34:56.789123456",
                             "2024-01-31 12:34:56+02",
                             "12:34:56+01:30",
                             "1 month",
                             "infinity",
                             "nan",
                             "0101",
                             "00ff",
                             "a",
                             "b",
                             "[1, 2]",
                             "{'i': 1, 's': x}",
                             "{1=2}",
                             "{\"a\": [1, 2]}",
                             "123e4567-e89b-12d3-a456-426614174000",
                             "170141183460469231731687303715884105727",
                             "POINT (1 2)"}) {
        values.push_back(Str(text));
    }
    values.push_back(Str(std::string_view("a\0b", 3)));
    values.push_back(Bytes(std::string_view("\x00\xFF\x10", 3)));
    values.push_back(Bytes(""));
    values.push_back(Bytes("a row of bytes that is longer than twelve"));
    values.push_back(Json("[1, 2]"));
    values.push_back(Json("{\"a\": 1}"));
    values.push_back(Json("no json"));
}

void AddOthers(std::vector<Value>& values) {
    const std::pair<const char*, const char*> typed[] = {{"HUGEINT", "12"},
                                                         {"DECIMAL", "1.25"},
                                                         {"UUID", "123e4567-e89b-12d3-a456-426614174000"},
                                                         {"BIT", "0101"},
                                                         {"INTERVAL", "3 days"},
                                                         {"TIMETZ", "12:34:56+01"},
                                                         {"TIME_TZ", "12:34:56+01"},
                                                         {"TIMESTAMP_TZ", "2024-01-31 12:34:56+00"},
                                                         {"TIMESTAMP_NS", "2024-01-31 12:34:56.123456789"},
                                                         {"TIME_NS", "12:34:56.123456789"},
                                                         {"BIGNUM", "12"},
                                                         {"DATE", "2024-01-31"}};
    for (const auto& [word, text] : typed) {
        values.push_back(Json(std::string(R"({"duckdb_value": true, "value_type": ")") + word +
                              R"(", "value": ")" + text + "\"}"));
    }
    values.push_back(Json(R"({"duckdb_variant": true, "variant_type": "OBJECT", "value": {"a": [1, "x"]}})"));
    values.push_back(Json(R"({"duckdb_value": true})"));
    values.push_back(Array(8, {Long(1), nullptr, Long(3)}));
    values.push_back(Array(8, {}));
    values.push_back(Array(20, {Str("a"), Str("b")}));
    values.push_back(Array(8, {Str("x")}));
    values.push_back(Value::Adopt(nbx::CreateValueReference(Long(7))));
    values.push_back(Value::Adopt(nbx::CreateValueReference(nullptr)));
    values.push_back(OfType(nbx::ValueType::Enum8, nullptr));
    values.push_back(nullptr);
    values.push_back(NullOf(20));
}

const std::vector<Value>& AllValues() {
    static const std::vector<Value> all = [] {
        std::vector<Value> values;
        AddNumbers(values);
        AddMoments(values);
        AddTexts(values);
        AddOthers(values);
        return values;
    }();
    return all;
}

Value HostsOwn(const Value& value) {
    return nbx::MakeObject<HostsOwnValue>(value);
}

class AppenderTypes : public AppenderTest, public testing::WithParamInterface<const char*> {};

template <class Call>
bool IsTaken(Call call) {
    const Thrown thrown = Catch(call);
    EXPECT_TRUE(thrown.exception.empty() || thrown.exception == "xDuckDBError") << thrown.exception;
    return thrown.exception.empty();
}

TEST_P(AppenderTypes, TakeTheValuesThatAnInsertWithParametersTakes) {
    const std::string type = GetParam();
    for (const char* table : {"bound", "appended", "of_the_host"}) {
        Direct(std::string("CREATE TABLE ") + table + " (row INTEGER, cell " + type + ")");
    }
    const auto statement = Prepared("INSERT INTO bound VALUES ($1, $2)");
    const Appender appender = Open("appended");
    const Appender host_appender = Open("of_the_host");
    int32_t number = 0;
    for (const Value& value : AllValues()) {
        const auto row = Row({Long(++number), value});
        const bool is_bound = IsTaken([&] {
            statement->put_Parameters(row);
            statement->Execute();
        });
        const auto host_row = Row({Long(number), value ? HostsOwn(value) : nullptr});
        EXPECT_EQ(IsTaken([&] { appender->AppendRow(row); }), is_bound)
            << "row " << number << ": " << (value ? Utf8(value->get_Text()) : "null");
        EXPECT_EQ(IsTaken([&] { host_appender->AppendRow(host_row); }), is_bound) << "row " << number;
    }
    appender->Close();
    host_appender->Close();
    for (const std::string table : {"appended", "of_the_host"}) {
        EXPECT_EQ(Direct("SELECT row, cell::VARCHAR FROM " + table + " ORDER BY row"),
                  Direct("SELECT row, cell::VARCHAR FROM bound ORDER BY row"));
        EXPECT_EQ(Scalar("SELECT count(*) FROM (FROM " + table + " EXCEPT ALL FROM bound)"), "0");
    }
    EXPECT_NE(Scalar("SELECT count(*) FROM appended"), "0");
}

TEST_F(AppenderTest, KeepsTextsOfEveryLengthWithACharacterOutsideOfAsciiAnywhere) {
    Direct("CREATE TABLE texts (length INTEGER, place INTEGER, text VARCHAR)");
    const Appender appender = Open("texts");
    for (const int32_t length : {0, 1, 3, 7, 8, 9, 15, 16, 17, 31, 40, 255, 256, 257}) {
        for (int32_t place = -1; place < length; ++place) {
            std::string text(static_cast<std::size_t>(length), 'x');
            if (place >= 0) {
                text.replace(static_cast<std::size_t>(place), 1,
                             place % 2 == 0 ? "\xC2\x80" : "\xEF\xBD\x81");
            }
            const Value own = Str(text);
            appender->AppendRow(Row({Long(length), Long(place), own}));
            appender->AppendRow(Row({Long(length), Long(place), HostsOwn(own)}));
        }
    }
    appender->Close();
    EXPECT_EQ(Scalar("SELECT count(*) FROM texts WHERE text IS DISTINCT FROM CASE place WHEN -1 THEN "
                     "repeat('x', length) "
                     "ELSE repeat('x', place) || chr(if(place % 2 = 0, 128, 65345)) || repeat('x', length - "
                     "place - 1) END"),
              "0");
    EXPECT_EQ(Scalar("SELECT count(*) FROM texts"), "1858");
}

INSTANTIATE_TEST_SUITE_P(Every, AppenderTypes,
                         testing::Values("BOOLEAN", "TINYINT", "SMALLINT", "INTEGER", "BIGINT", "UTINYINT",
                                         "USMALLINT", "UINTEGER", "UBIGINT", "HUGEINT", "UHUGEINT", "FLOAT",
                                         "DOUBLE", "DECIMAL(4,1)", "DECIMAL(9,2)", "DECIMAL(15,2)",
                                         "DECIMAL(38,10)", "DATE", "TIME", "TIME_NS", "TIMETZ", "TIMESTAMP",
                                         "TIMESTAMP_S", "TIMESTAMP_MS", "TIMESTAMP_NS", "TIMESTAMPTZ",
                                         "INTERVAL", "VARCHAR", "BLOB", "BIT", "BIGNUM", "UUID", "JSON",
                                         "VARIANT", "ENUM('a', 'b')", "INTEGER[]", "INTEGER[2]",
                                         "STRUCT(i INTEGER, s VARCHAR)", "MAP(INTEGER, INTEGER)", "VARCHAR[]",
                                         "UNION(i INTEGER, s VARCHAR)"));

}  // namespace
}  // namespace mduckdb::test
