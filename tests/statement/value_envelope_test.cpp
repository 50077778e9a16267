#include <string>
#include <vector>

#include "duckdb_internals/plain_functions.h"
#include "statement_fixture.h"
#include "values/host_value_binding.h"

namespace mduckdb::test {

namespace {

using Seen = std::pair<std::string, std::string>;

std::string Quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

Value Typed(std::string_view type_word, std::string_view json_value) {
    return Json(R"({"duckdb_value":true,"value_type":)" + Quoted(type_word) + R"(,"value":)" +
                std::string(json_value) + "}");
}

Value Variant(std::string_view type_word, std::string_view json_value) {
    return Json(R"({"duckdb_variant":true,"variant_type":)" + Quoted(type_word) + R"(,"value":)" +
                std::string(json_value) + "}");
}

struct Accepted {
    const char* word;
    const char* text;
    const char* type;
    const char* seen;
};

constexpr Accepted kAccepted[] = {
    {"BOOL", "true", "BOOLEAN", "true"},
    {"BOOLEAN", "false", "BOOLEAN", "false"},
    {"BOOL_TRUE", "whatever", "BOOLEAN", "true"},
    {"BOOL_FALSE", "whatever", "BOOLEAN", "false"},
    {"INT8", "-128", "TINYINT", "-128"},
    {"INT16", "-32768", "SMALLINT", "-32768"},
    {"INT32", "42", "INTEGER", "42"},
    {"INT64", "-9223372036854775808", "BIGINT", "-9223372036854775808"},
    {"INT128", "-170141183460469231731687303715884105728", "HUGEINT",
     "-170141183460469231731687303715884105728"},
    {"UINT8", "255", "UTINYINT", "255"},
    {"UINT16", "65535", "USMALLINT", "65535"},
    {"UINT32", "4294967295", "UINTEGER", "4294967295"},
    {"UINT64", "18446744073709551615", "UBIGINT", "18446744073709551615"},
    {"UINT128", "340282366920938463463374607431768211455", "UHUGEINT",
     "340282366920938463463374607431768211455"},
    {"FLOAT", "1.5", "FLOAT", "1.5"},
    {"DOUBLE", "1e300", "DOUBLE", "1e+300"},
    {"VARCHAR", " as it is ", "VARCHAR", " as it is "},
    {"UUID", "00112233-4455-6677-8899-aabbccddeeff", "UUID", "00112233-4455-6677-8899-aabbccddeeff"},
    {"DATE", "2024-02-29", "DATE", "2024-02-29"},
    {"TIME_MICROS", "12:34:56.789012", "TIME", "12:34:56.789012"},
    {"TIME_NANOS", "12:34:56.789012345", "TIME_NS", "12:34:56.789012345"},
    {"TIME_MICROS_TZ", "12:34:56+02", "TIME WITH TIME ZONE", "12:34:56+02"},
    {"TIMESTAMP_SEC", "2024-02-29 12:34:56", "TIMESTAMP_S", "2024-02-29 12:34:56"},
    {"TIMESTAMP_MILIS", "2024-02-29 12:34:56.25", "TIMESTAMP_MS", "2024-02-29 12:34:56.25"},
    {"TIMESTAMP_MICROS", "2024-02-29 12:34:56.789012", "TIMESTAMP", "2024-02-29 12:34:56.789012"},
    {"TIMESTAMP_NANOS", "2024-02-29 12:34:56.789012345", "TIMESTAMP_NS", "2024-02-29 12:34:56.789012345"},
    {"TIMESTAMP_MICROS_TZ", "2024-02-29 12:34:56+00", "TIMESTAMP WITH TIME ZONE", "2024-02-29 12:34:56+00"},
    {"INTERVAL", "1 year 2 days", "INTERVAL", "1 year 2 days"},
    {"BITSTRING", "10100101", "BIT", "10100101"},
    {"BIGNUM", "-123456789012345678901234567890123456789012", "BIGNUM",
     "-123456789012345678901234567890123456789012"},
    {"DECIMAL", "-12.50", "DECIMAL(4,2)", "-12.50"},
    {"GEOMETRY", "POINT (1 2)", "GEOMETRY", "POINT (1 2)"},
};

}  // namespace

class EnvelopeTest : public StatementTest {
  protected:
    EnvelopeTest() { Direct("SET TimeZone = 'UTC'"); }

    Thrown Refusal(const Value& value) {
        return Catch([&] { SeenOf(value); });
    }
};

TEST_F(EnvelopeTest, EveryTypeNameCreatesItsTypeUnderBothMarkers) {
    for (const Accepted& item : kAccepted) {
        SCOPED_TRACE(item.word);
        EXPECT_EQ(SeenOf(Typed(item.word, Quoted(item.text))), Seen(item.type, item.seen));
        EXPECT_EQ(SeenOf(Variant(item.word, Quoted(item.text))), Seen(item.type, item.seen));
    }
}

TEST_F(EnvelopeTest, VariantNullIsNullForAnyValue) {
    EXPECT_EQ(SeenOf(Variant("VARIANT_NULL", "null")).second, "NULL");
    EXPECT_EQ(SeenOf(Typed("VARIANT_NULL", "\"something\"")).second, "NULL");
}

TEST_F(EnvelopeTest, BoolTrueIsTrueForAnyValue) {
    EXPECT_EQ(SeenOf(Variant("BOOL_TRUE", "null")), Seen("BOOLEAN", "true"));
    EXPECT_EQ(SeenOf(Variant("BOOL_TRUE", "false")), Seen("BOOLEAN", "true"));
    EXPECT_EQ(SeenOf(Variant("BOOL_FALSE", "[1]")), Seen("BOOLEAN", "false"));
}

TEST_F(EnvelopeTest, TheValueMayBeANumberABooleanOrNested) {
    EXPECT_EQ(SeenOf(Typed("INT32", "42")), Seen("INTEGER", "42"));
    EXPECT_EQ(SeenOf(Typed("BOOL", "true")), Seen("BOOLEAN", "true"));
    EXPECT_EQ(SeenOf(Typed("VARCHAR", "[1,2]")), Seen("VARCHAR", "[1,2]"));
    EXPECT_EQ(SeenOf(Typed("VARCHAR", "null")), Seen("VARCHAR", ""));
}

TEST_F(EnvelopeTest, NumbersKeepTheDigitsOfTheText) {
    EXPECT_EQ(SeenOf(Typed("INT128", "170141183460469231731687303715884105727")),
              Seen("HUGEINT", "170141183460469231731687303715884105727"));
    EXPECT_EQ(SeenOf(Typed("DECIMAL", "12.50")), Seen("DECIMAL(4,2)", "12.50"));
    EXPECT_EQ(SeenOf(Typed("DECIMAL", "0.10000000000000000000000000000000001")),
              Seen("DECIMAL(36,35)", "0.10000000000000000000000000000000001"));
}

TEST_F(EnvelopeTest, WidthAndScaleOfADecimalComeFromItsText) {
    EXPECT_EQ(SeenOf(Typed("DECIMAL", "\"7\"")), Seen("DECIMAL(1,0)", "7"));
    EXPECT_EQ(SeenOf(Typed("DECIMAL", "\"-0.5\"")), Seen("DECIMAL(2,1)", "-0.5"));
    EXPECT_EQ(SeenOf(Typed("DECIMAL", "\"100.\"")), Seen("DECIMAL(3,0)", "100"));
    EXPECT_EQ(SeenOf(Typed("DECIMAL", "\"99999999999999999999999999999999999999\"")),
              Seen("DECIMAL(38,0)", "99999999999999999999999999999999999999"));
    EXPECT_EQ(
        Refusal(Typed("DECIMAL", "\"999999999999999999999999999999999999999\"")),
        DuckDBError("value", "Cannot parse DECIMAL typed value: 999999999999999999999999999999999999999"));
    EXPECT_EQ(Refusal(Typed("DECIMAL", "\"1.abc\"")),
              DuckDBError("value", "Cannot parse DECIMAL typed value: 1.abc"));
    for (const char* text : {"\"\"", "\"abc\"", "\"1e5\"", "\"--1\""}) {
        const Thrown thrown = Refusal(Typed("DECIMAL", text));
        EXPECT_EQ(thrown, DuckDBError("value", thrown.message)) << text;
    }
}

TEST_F(EnvelopeTest, ATextThatItsTypeDoesNotAllowIsRejectedWithDuckDBsText) {
    const Thrown thrown = Refusal(Typed("INT8", "\"300\""));
    EXPECT_EQ(thrown, DuckDBError("value", thrown.message));
    EXPECT_NE(thrown.message.find("300"), std::string::npos) << thrown.message;
    for (const Accepted& item : kAccepted) {
        const std::string word = item.word;
        if (word == "VARCHAR" || word == "BOOL_TRUE" || word == "BOOL_FALSE") {
            continue;
        }
        const Thrown refusal = Refusal(Typed(item.word, "\"rubbish\""));
        EXPECT_EQ(refusal, DuckDBError("value", refusal.message)) << word;
        EXPECT_NE(refusal.message, "") << word;
        EXPECT_EQ(Refusal(Variant(item.word, "\"rubbish\"")), refusal) << word;
        // An empty text is none of these either, but for a bit string of DuckDB 2.0.
        const bool is_valid = word == "BITSTRING" && Scalar("SELECT TRY_CAST('' AS BIT) IS NULL") == "false";
        EXPECT_EQ(Refusal(Typed(item.word, "\"\"")).exception, is_valid ? "" : "xDuckDBError") << word;
    }
}

TEST_F(EnvelopeTest, ArrayAndObjectBelongToTheVariantMarker) {
    const Thrown refusal = DuckDBError(
        "value", "Use duckdb_variant with variant_type ARRAY or OBJECT for DuckDB VARIANT values");
    EXPECT_EQ(Refusal(Typed("ARRAY", "[1,2]")), refusal);
    EXPECT_EQ(Refusal(Typed("OBJECT", "{}")), refusal);
    EXPECT_EQ(SeenOf(Variant("ARRAY", "[1,2]")).first, "VARIANT");
    EXPECT_EQ(SeenOf(Variant("OBJECT", R"({"a":1})")).first, "VARIANT");
    EXPECT_EQ(SeenOf(Variant("JSON", R"({"a":[1,null]})")).first, "VARIANT");
    EXPECT_EQ(SeenOf(Typed("JSON", "[1]")).first, "VARIANT");
}

TEST_F(EnvelopeTest, NestedVariantsKeepTheirContent) {
    auto statement =
        Prepared("INSERT INTO seen SELECT variant_typeof(v), CAST(v AS VARCHAR) FROM (SELECT $1 AS v)");
    const auto seen = [&](const Value& value) {
        Direct("DELETE FROM seen");
        statement->BindValue(1, value);
        statement->Execute();
        const Table table = Direct("SELECT * FROM seen");
        return Seen(table[0][0], table[0][1]);
    };
    EXPECT_EQ(seen(Variant("ARRAY", "[1,2]")), Seen("ARRAY(2)", "[1, 2]"));
    EXPECT_EQ(seen(Variant("OBJECT", R"({"a":1,"b":"x"})")).first, "OBJECT(a, b)");
    EXPECT_EQ(seen(Variant("JSON", "\"[true]\"")), Seen("ARRAY(1)", "[true]"));
}

TEST_F(EnvelopeTest, MalformedJsonIsRefusedAndNeverNull) {
    for (const char* text : {"[1,", "{\"a\":}", "rubbish", "", "nul"}) {
        std::string escaped;
        for (const char c : std::string(text)) {
            escaped += c == '"' ? std::string("\\\"") : std::string(1, c);
        }
        for (const char* word : {"ARRAY", "OBJECT", "JSON"}) {
            const Thrown thrown = Refusal(Variant(word, Quoted(escaped)));
            EXPECT_EQ(thrown, DuckDBError("value", thrown.message)) << word << ' ' << text;
            EXPECT_NE(thrown.message, "") << word << ' ' << text;
        }
    }
    std::string deep(400, '[');
    deep += std::string(400, ']');
    EXPECT_EQ(Refusal(Variant("ARRAY", Quoted(deep))).exception, "xDuckDBError");
    EXPECT_EQ(Scalar("SELECT 1"), "1");
}

TEST_F(EnvelopeTest, OnlyTheJsonTextNullBecomesNull) {
    EXPECT_EQ(SeenOf(Variant("JSON", "\"null\"")).second, "NULL");
    EXPECT_EQ(Refusal(Variant("JSON", "null")).exception, "xDuckDBError");
}

TEST_F(EnvelopeTest, MarkersThatAreAbsentOrFalseAreRefused) {
    const Thrown refusal =
        DuckDBError("value", "Malformed DuckDB envelope: missing 'duckdb_value' or 'duckdb_variant' marker");
    EXPECT_EQ(Refusal(Json(R"({"duckdb_value":false,"value":1})")), refusal);
    EXPECT_EQ(Refusal(Json(R"({"duckdb_variant":false})")), refusal);
    EXPECT_EQ(Refusal(Json(R"({"duckdb_value":null,"duckdb_variant":false,"value":1})")), refusal);
    EXPECT_EQ(Refusal(Json(R"({"duckdb_value":{},"value":1})")), refusal);
}

TEST_F(EnvelopeTest, TheVariantMarkerCountsWhenTheOtherIsFalse) {
    EXPECT_EQ(SeenOf(Json(R"({"duckdb_value":false,"duckdb_variant":true,"variant_type":"INT8","value":1})")),
              Seen("TINYINT", "1"));
    EXPECT_EQ(SeenOf(Json(
                  R"({"duckdb_value":true,"duckdb_variant":true,"variant_type":"INT8","value_type":"INT16",)"
                  R"("value":1})")),
              Seen("SMALLINT", "1"));
}

TEST_F(EnvelopeTest, MissingMembersAreRefused) {
    const Thrown value_refusal =
        DuckDBError("value", "Malformed DuckDB value envelope: missing 'value_type' or 'value' field");
    EXPECT_EQ(Refusal(Json(R"({"duckdb_value":true})")), value_refusal);
    EXPECT_EQ(Refusal(Json(R"({"duckdb_value":true,"value_type":"INT8"})")), value_refusal);
    EXPECT_EQ(Refusal(Json(R"({"duckdb_value":true,"value":1})")), value_refusal);
    EXPECT_EQ(Refusal(Json(R"({"duckdb_value":true,"variant_type":"INT8","value":1})")), value_refusal);
    const Thrown variant_refusal =
        DuckDBError("variant", "Malformed DuckDB variant envelope: missing 'variant_type' or 'value' field");
    EXPECT_EQ(Refusal(Json(R"({"duckdb_variant":true})")), variant_refusal);
    EXPECT_EQ(Refusal(Json(R"({"duckdb_variant":true,"variant_type":"INT8"})")), variant_refusal);
    EXPECT_EQ(Refusal(Json(R"({"duckdb_variant":true,"value_type":"INT8","value":1})")), variant_refusal);
}

TEST_F(EnvelopeTest, UnknownTypeNamesAreRejectedByName) {
    for (const char* word : {"TIMESTAMP_MILLIS", "BLOB", "UNKNOWN", "int8", "Int8", "INT8 ", "", "VARIANT"}) {
        const Thrown refusal =
            DuckDBError("value", std::string("Unsupported DuckDB typed value in envelope: ") + word);
        EXPECT_EQ(Refusal(Typed(word, "\"1\"")), refusal);
        EXPECT_EQ(Refusal(Variant(word, "\"1\"")), refusal);
    }
}

TEST_F(EnvelopeTest, TextsMayHoldNulsAndEveryOtherCharacter) {
    auto statement = Prepared("INSERT INTO seen SELECT length($1), 'x'");
    statement->BindValue(1, Typed("VARCHAR", R"("a\u0000b\ud83d\ude00")"));
    statement->Execute();
    EXPECT_EQ(Scalar("SELECT type FROM seen"), "4");
}

}  // namespace mduckdb::test
