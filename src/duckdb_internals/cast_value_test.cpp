#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/json_text.h"
#include "duckdb_internals/plain_functions.h"
#include "support/sample_values.h"
#include "support/test_engine.h"

namespace mduckdb {
namespace {

ValueHolder Varchar(const std::string& text) {
    return ValueHolder(duckdb_create_varchar_length(text.data(), text.size()));
}

/** The message of DuckDB's error without the kind that precedes it. */
std::string ErrorOf(TestEngine& engine, const std::string& sql) {
    duckdb_result result{};
    EXPECT_EQ(duckdb_query(engine.get(), sql.c_str(), &result), DuckDBError) << sql;
    std::string error = duckdb_result_error(&result);
    duckdb_destroy_result(&result);
    error = error.substr(error.find(": ") + 2);
    return error.substr(0, error.find("\n\nLINE"));
}

TEST(CastValue, TextsBecomeEveryTypeAsInSql) {
    TestEngine engine;
    const std::pair<duckdb_type, const char*> samples[] = {
        {DUCKDB_TYPE_BOOLEAN, "true"},
        {DUCKDB_TYPE_TINYINT, "-128"},
        {DUCKDB_TYPE_SMALLINT, "32767"},
        {DUCKDB_TYPE_INTEGER, "42"},
        {DUCKDB_TYPE_BIGINT, "-9223372036854775808"},
        {DUCKDB_TYPE_UTINYINT, "255"},
        {DUCKDB_TYPE_USMALLINT, "65535"},
        {DUCKDB_TYPE_UINTEGER, "4294967295"},
        {DUCKDB_TYPE_UBIGINT, "18446744073709551615"},
        {DUCKDB_TYPE_FLOAT, "1.5"},
        {DUCKDB_TYPE_DOUBLE, "-1e308"},
        {DUCKDB_TYPE_TIMESTAMP, "2024-01-31 12:34:56.789"},
        {DUCKDB_TYPE_DATE, "2024-01-31"},
        {DUCKDB_TYPE_TIME, "12:34:56"},
        {DUCKDB_TYPE_INTERVAL, "3 days"},
        {DUCKDB_TYPE_HUGEINT, "-170141183460469231731687303715884105728"},
        {DUCKDB_TYPE_UHUGEINT, "340282366920938463463374607431768211455"},
        {DUCKDB_TYPE_VARCHAR, "text"},
        {DUCKDB_TYPE_BLOB, "\\xAB"},
        {DUCKDB_TYPE_TIMESTAMP_S, "2024-01-31 12:34:56"},
        {DUCKDB_TYPE_TIMESTAMP_MS, "2024-01-31 12:34:56.789"},
        {DUCKDB_TYPE_TIMESTAMP_NS, "2024-01-31 12:34:56.789012345"},
        {DUCKDB_TYPE_UUID, "a1b2c3d4-0000-4000-8000-00000000ffff"},
        {DUCKDB_TYPE_BIT, "0101"},
        {DUCKDB_TYPE_TIME_TZ, "12:34:56+02"},
        {DUCKDB_TYPE_TIMESTAMP_TZ, "2024-01-31 12:34:56+02"},
        {DUCKDB_TYPE_BIGNUM, "123456789012345678901234567890123456789012345"},
        {DUCKDB_TYPE_TIME_NS, "12:34:56.789012345"},
        {DUCKDB_TYPE_GEOMETRY, "POINT (1 2)"},
        {DUCKDB_TYPE_VARIANT, "plain text"},
    };
    for (const auto& [code, text] : samples) {
        CastResult cast = Cast(Varchar(text).get(), code);
        ASSERT_EQ(cast.state, DuckDBSuccess) << text << ": " << cast.error;
        const std::string type = TypeTextOf(cast.value.get());
        const std::string sql = "'" + std::string(text) + "'::" + type;
        EXPECT_EQ(duckdb_get_type_id(duckdb_get_value_type(cast.value.get())), code);
        EXPECT_EQ(TextOf(cast.value.get()), engine.QueryText("SELECT CAST(" + sql + " AS VARCHAR)")) << sql;
    }
}

TEST(CastValue, ATextThatDoesNotFitFailsWithDuckDBsMessage) {
    TestEngine engine;
    const std::pair<duckdb_type, const char*> samples[] = {
        {DUCKDB_TYPE_TINYINT, "300"},   {DUCKDB_TYPE_INTEGER, "x"},  {DUCKDB_TYPE_DATE, "2024-13-01"},
        {DUCKDB_TYPE_TIME, "25:00:00"}, {DUCKDB_TYPE_UUID, "1234"},  {DUCKDB_TYPE_BIT, "012"},
        {DUCKDB_TYPE_BOOLEAN, "maybe"}, {DUCKDB_TYPE_TIMESTAMP, ""}, {DUCKDB_TYPE_HUGEINT, "1e99"},
    };
    for (const auto& [code, text] : samples) {
        CastResult cast = Cast(Varchar(text).get(), code);
        EXPECT_EQ(cast.state, DuckDBError) << text;
        LogicalTypeHolder type(duckdb_create_logical_type(code));
        TextHolder name(duckdb_logical_type_to_string(type.get()));
        const std::string sql = "SELECT '" + std::string(text) + "'::" + name.get();
        EXPECT_EQ(cast.error, ErrorOf(engine, sql)) << sql;
    }
}

TEST(CastValue, BothOutParametersAreOptional) {
    LogicalTypeHolder type(duckdb_create_logical_type(DUCKDB_TYPE_INTEGER));
    duckdb_value out = nullptr;
    EXPECT_EQ(duckdb_cast_value(Varchar("x").get(), type.get(), &out, nullptr), DuckDBError);
    EXPECT_EQ(out, nullptr);
    char* error = nullptr;
    EXPECT_EQ(duckdb_cast_value(Varchar("1").get(), type.get(), nullptr, &error), DuckDBError);
    EXPECT_EQ(error, nullptr);
}

TEST(CastValue, NullStaysNullWithTheNewType) {
    ValueHolder null(duckdb_create_null_value());
    for (const duckdb_type code : {DUCKDB_TYPE_INTEGER, DUCKDB_TYPE_VARCHAR, DUCKDB_TYPE_VARIANT}) {
        CastResult cast = Cast(null.get(), code);
        ASSERT_EQ(cast.state, DuckDBSuccess) << cast.error;
        EXPECT_TRUE(duckdb_is_null_value(cast.value.get()));
        EXPECT_EQ(duckdb_get_type_id(duckdb_get_value_type(cast.value.get())), code);
    }
}

TEST(CastValue, TheSourceKeepsItsTypeAndValue) {
    ValueHolder source = Varchar("42");
    Cast(source.get(), DUCKDB_TYPE_INTEGER);
    EXPECT_EQ(TypeTextOf(source.get()), "VARCHAR");
    EXPECT_EQ(TextOf(source.get()), "42");
}

TEST(CastValue, EveryTypeCodeAsTargetSucceedsOrFailsInAnOrdinaryWay) {
    TestEngine engine;
    for (const char* expression : {"'1'", "1", "[1]", "{'a': 1}", "NULL", "'x'::ENUM('x')", "1::VARIANT"}) {
        ValueHolder source = engine.QueryValue(std::string("SELECT ") + expression);
        for (int code = -1; code <= 60; ++code) {
            LogicalTypeHolder type(duckdb_create_logical_type(static_cast<duckdb_type>(code)));
            CastResult cast = Cast(source.get(), type.get());
            if (cast.value && !duckdb_is_null_value(cast.value.get())) {
                EXPECT_NE(TextOf(cast.value.get()), std::nullopt) << expression << " as " << code;
            }
        }
    }
    for (const duckdb_type code :
         {DUCKDB_TYPE_INVALID, DUCKDB_TYPE_ANY, DUCKDB_TYPE_DECIMAL, DUCKDB_TYPE_LIST}) {
        EXPECT_EQ(Cast(Varchar("1").get(), code).state, DuckDBError) << code;
    }
}

TEST(CastValue, AnIncompleteVariantIsCompletedAlsoInsideOtherTypes) {
    TestEngine engine;
    LogicalTypeHolder variant(duckdb_create_logical_type(DUCKDB_TYPE_VARIANT));
    LogicalTypeHolder list(duckdb_create_list_type(variant.get()));
    ValueHolder numbers = engine.QueryValue("SELECT [1, 2]");
    CastResult cast = Cast(numbers.get(), list.get());
    ASSERT_EQ(cast.state, DuckDBSuccess) << cast.error;
    EXPECT_EQ(TypeTextOf(cast.value.get()), "VARIANT[]");
    EXPECT_EQ(TextOf(cast.value.get()), "[1, 2]");
    ValueHolder first(duckdb_get_list_child(cast.value.get(), 0));
    EXPECT_EQ(duckdb_value_variant_type(first.get()), 5U);
}

TEST(CastValue, EveryValueBecomesAVariantAndBack) {
    TestEngine engine;
    for (const auto& expression : get_SampleExpressions()) {
        SCOPED_TRACE(expression);
        ValueHolder source = engine.QueryValue("SELECT " + expression);
        CastResult cast = Cast(source.get(), DUCKDB_TYPE_VARIANT);
        const std::string sql = "SELECT (" + expression + ")::VARIANT::VARCHAR";
        ResultHolder direct;
        if (duckdb_query(engine.get(), sql.c_str(), direct.Receive()) != DuckDBSuccess) {
            EXPECT_TRUE(expression.starts_with("row("));
            EXPECT_FALSE(cast.error.empty());
            EXPECT_THAT(duckdb_result_error(direct.get()), testing::HasSubstr(cast.error));
            continue;
        }
        ASSERT_EQ(cast.state, DuckDBSuccess) << cast.error;
        EXPECT_EQ(TextOf(cast.value.get()), engine.QueryText(sql));
    }
}

TEST(CastValue, MalformedGeometryFails) {
    for (const char* text : {"", "POINT", "POINT(1", "NOTHING(1 2)", "POLYGON((0 0,", "\xC3\xA9"}) {
        EXPECT_EQ(Cast(Varchar(text).get(), DUCKDB_TYPE_GEOMETRY).state, DuckDBError) << text;
    }
}

TEST(JsonToVariant, TextBecomesTheValueThatItDescribes) {
    const std::pair<const char*, uint32_t> samples[] = {
        {"[1,2]", 30}, {R"({"a":{"b":[]}})", 29}, {"\"x\"", 16}, {"true", 1}, {"false", 2}, {"1.5", 14},
    };
    for (const auto& [text, kind] : samples) {
        CastResult cast = Cast(JsonValue(text).get(), DUCKDB_TYPE_VARIANT);
        ASSERT_EQ(cast.state, DuckDBSuccess) << text << cast.error;
        EXPECT_EQ(duckdb_value_variant_type(cast.value.get()), kind) << text;
    }
}

TEST(JsonToVariant, TheAliasDistinguishesJsonFromText) {
    CastResult text = Cast(Varchar("[1,2]").get(), DUCKDB_TYPE_VARIANT);
    EXPECT_EQ(duckdb_value_variant_type(text.value.get()), 16U);
    EXPECT_EQ(TypeTextOf(JsonValue("[1,2]").get()), "JSON");
}

TEST(JsonToVariant, MalformedTextFailsInsteadOfBecomingNull) {
    for (const char* text :
         {"", " ", "[1,", "{\"a\"}", "nul", "[1] x", "{'a':1}", "\"open", "NULL", "\x01"}) {
        CastResult cast = Cast(JsonValue(text).get(), DUCKDB_TYPE_VARIANT);
        EXPECT_EQ(cast.state, DuckDBError) << text;
        EXPECT_EQ(cast.error, "") << text;
    }
}

TEST(JsonToVariant, OnlyTheLiteralNullBecomesNull) {
    for (const char* text : {"null", " null\n"}) {
        CastResult cast = Cast(JsonValue(text).get(), DUCKDB_TYPE_VARIANT);
        ASSERT_EQ(cast.state, DuckDBSuccess) << text;
        EXPECT_TRUE(duckdb_is_null_value(cast.value.get()) ||
                    duckdb_value_variant_type(cast.value.get()) == 0);
    }
}

TEST(JsonToVariant, MalformedTextInsideAListFailsToo) {
    ValueHolder elements[] = {JsonValue("[1]"), JsonValue("[1")};
    LogicalTypeHolder json(duckdb_create_logical_type(DUCKDB_TYPE_VARCHAR));
    duckdb_logical_type_set_alias(json.get(), "JSON");
    LogicalTypeHolder variant(duckdb_create_logical_type(DUCKDB_TYPE_VARIANT));
    LogicalTypeHolder variants(duckdb_create_list_type(variant.get()));
    duckdb_value handles[] = {elements[0].get(), elements[1].get()};
    ValueHolder good(duckdb_create_list_value(json.get(), handles, 1));
    ValueHolder bad(duckdb_create_list_value(json.get(), handles, 2));
    ASSERT_TRUE(good && bad);
    EXPECT_EQ(Cast(good.get(), variants.get()).state, DuckDBSuccess);
    EXPECT_EQ(Cast(bad.get(), variants.get()).state, DuckDBError);
    EXPECT_EQ(Cast(bad.get(), DUCKDB_TYPE_VARIANT).state, DuckDBError);
}

class DeepJson : public testing::TestWithParam<std::size_t> {};

TEST_P(DeepJson, IsAcceptedUpToTheLimitAndRejectedBeyond) {
    const std::size_t levels = GetParam();
    std::string objects;
    for (std::size_t i = 0; i < levels; ++i) {
        objects += "{\"a\":";
    }
    const std::string texts[] = {
        std::string(levels, '[') + std::string(levels, ']'),
        objects + "1" + std::string(levels, '}'),
        std::string(levels, '['),
        objects,
    };
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        const bool is_complete = i < 2;
        CastResult cast = Cast(JsonValue(texts[i]).get(), DUCKDB_TYPE_VARIANT);
        ASSERT_EQ(cast.state, is_complete && levels <= kDeepestJson ? DuckDBSuccess : DuckDBError) << i;
        if (cast.value) {
            ValueHolder child(duckdb_value_variant_child(cast.value.get()));
            EXPECT_TRUE(child);
            EXPECT_EQ(TextOf(child.get()), TextOf(cast.value.get()));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, DeepJson, testing::Values(1, 2, 50, 199, 200, 201, 500, 5000, 100000));

}  // namespace
}  // namespace mduckdb
