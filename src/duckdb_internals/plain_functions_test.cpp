#include "duckdb_internals/plain_functions.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/sample_values.h"
#include "support/test_engine.h"

namespace mduckdb {
namespace {

constexpr idx_t kFarAway = std::numeric_limits<idx_t>::max();

TEST(PlainFunctions, EveryTypeReadsWithItsOwnTypeAndText) {
    TestEngine engine;
    for (const auto& expression : get_SampleExpressions()) {
        SCOPED_TRACE(expression);
        ValueHolder value = engine.QueryValue("SELECT " + expression);
        ASSERT_TRUE(value);
        if (expression != "NULL") {  // an untyped NULL column becomes an INTEGER
            EXPECT_EQ(TypeTextOf(value.get()), engine.QueryText("SELECT typeof(" + expression + ")"));
        }
        EXPECT_EQ(TextOf(value.get()), engine.QueryText("SELECT CAST(" + expression + " AS VARCHAR)"));
    }
}

TEST(PlainFunctions, NullHandlesReturnNothing) {
    idx_t length = 7;
    char* error = nullptr;
    duckdb_value out = nullptr;
    ValueHolder one(duckdb_create_int32(1));
    LogicalTypeHolder type(duckdb_create_logical_type(DUCKDB_TYPE_INTEGER));
    EXPECT_EQ(duckdb_data_chunk_get_value(nullptr, 0, 0), nullptr);
    EXPECT_EQ(duckdb_logical_type_to_string(nullptr), nullptr);
    EXPECT_EQ(duckdb_extracted_statement_sql(nullptr, 0), nullptr);
    EXPECT_EQ(duckdb_cast_value(nullptr, type.get(), &out, &error), DuckDBError);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(duckdb_cast_value(one.get(), nullptr, &out, nullptr), DuckDBError);
    EXPECT_EQ(duckdb_cast_value(one.get(), type.get(), nullptr, nullptr), DuckDBError);
    EXPECT_EQ(duckdb_value_variant_type(nullptr), UINT32_MAX);
    EXPECT_EQ(duckdb_value_variant_child(nullptr), nullptr);
    EXPECT_EQ(duckdb_get_varchar_length(nullptr, &length), nullptr);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(duckdb_get_varchar_length(nullptr, nullptr), nullptr);
}

TEST(PlainFunctions, ACellOutsideTheChunkHasNoValue) {
    TestEngine engine;
    ResultHolder result = engine.Query("SELECT 1, 'x' FROM range(3)");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    EXPECT_EQ(TextOf(ValueHolder(duckdb_data_chunk_get_value(chunk.get(), 1, 2)).get()), "x");
    EXPECT_EQ(duckdb_data_chunk_get_value(chunk.get(), 2, 0), nullptr);
    EXPECT_EQ(duckdb_data_chunk_get_value(chunk.get(), 0, 3), nullptr);
    EXPECT_EQ(duckdb_data_chunk_get_value(chunk.get(), kFarAway, 0), nullptr);
    EXPECT_EQ(duckdb_data_chunk_get_value(chunk.get(), 0, kFarAway), nullptr);
}

TEST(PlainFunctions, EveryTypeCodeHasATypeText) {
    for (int code = 0; code <= 50; ++code) {
        LogicalTypeHolder type(duckdb_create_logical_type(static_cast<duckdb_type>(code)));
        if (type) {
            TextHolder text(duckdb_logical_type_to_string(type.get()));
            EXPECT_TRUE(text && *text.get() != '\0') << code;
        }
    }
    LogicalTypeHolder decimal(duckdb_create_decimal_type(18, 3));
    EXPECT_STREQ(TextHolder(duckdb_logical_type_to_string(decimal.get())).get(), "DECIMAL(18,3)");
    LogicalTypeHolder list(duckdb_create_list_type(decimal.get()));
    EXPECT_STREQ(TextHolder(duckdb_logical_type_to_string(list.get())).get(), "DECIMAL(18,3)[]");
}

class ExtractedStatements : public testing::Test {
  protected:
    /** Returns the number of statements. */
    idx_t Extract(const char* sql) {
        return duckdb_extract_statements(engine_.get(), sql, extracted_.Receive());
    }
    std::string Text(idx_t index) {
        TextHolder text(duckdb_extracted_statement_sql(extracted_.get(), index));
        return text ? text.get() : "(none)";
    }

    TestEngine engine_;
    ExtractedHolder extracted_;
};

TEST_F(ExtractedStatements, EachHasItsOwnText) {
    ASSERT_EQ(Extract("SELECT 1; SELECT 'a;b' -- end\n;SELECT 3"), 3U);
    EXPECT_EQ(Text(0), "SELECT 1");
    EXPECT_NE(Text(1).find("SELECT 'a;b'"), std::string::npos);
    EXPECT_EQ(Text(1).find("SELECT 3"), std::string::npos);
    EXPECT_EQ(Text(2), "SELECT 3");
    EXPECT_EQ(Text(3), "(none)");
    EXPECT_EQ(Text(kFarAway), "(none)");
}

TEST_F(ExtractedStatements, ATextEndsBeforeItsSemicolon) {
    ASSERT_EQ(Extract("SELECT 1 /* a;b */ ; -- c;d\n;;SELECT ';' ; SELECT 2"), 3U);
    EXPECT_EQ(Text(0), "SELECT 1 /* a;b */ ");
    EXPECT_TRUE(Text(1).ends_with("SELECT ';' ")) << Text(1);
}

TEST_F(ExtractedStatements, APreparedStatementHasNoTextAnymore) {
    ASSERT_EQ(Extract("SELECT 1; SELECT * FROM nowhere"), 2U);
    for (idx_t index = 0; index < 2; ++index) {
        PreparedHolder prepared;
        EXPECT_EQ(
            duckdb_prepare_extracted_statement(engine_.get(), extracted_.get(), index, prepared.Receive()),
            index == 0 ? DuckDBSuccess : DuckDBError);
        EXPECT_EQ(Text(index), "(none)");
    }
}

TEST_F(ExtractedStatements, TextWithoutStatementsHasNoStatementText) {
    for (const char* sql : {"", "  ", ";;", "-- nothing", "SELEC 1"}) {
        EXPECT_EQ(Extract(sql), 0U) << sql;
        EXPECT_EQ(Text(0), "(none)") << sql;
    }
}

TEST(Texts, AreWholeWithTheirNulCharacters) {
    TestEngine engine;
    EXPECT_EQ(TextOf(engine.QueryValue("SELECT 'a' || chr(0) || 'b'").get()), std::string("a\0b", 3));
    EXPECT_EQ(TextOf(engine.QueryValue("SELECT ['a' || chr(0) || 'b']").get()),
              engine.QueryText("SELECT ['a' || chr(0) || 'b']::VARCHAR"));
    EXPECT_EQ(TextOf(engine.QueryValue("SELECT ''").get()), "");
    const std::string zeros(1000, '\0');
    EXPECT_EQ(TextOf(ValueHolder(duckdb_create_varchar_length(zeros.data(), zeros.size())).get()), zeros);
}

TEST(Texts, AreMissingForNull) {
    ValueHolder null(duckdb_create_null_value());
    EXPECT_EQ(TextOf(null.get()), std::nullopt);
    TestEngine engine;
    EXPECT_EQ(TextOf(engine.QueryValue("SELECT NULL::VARCHAR").get()), std::nullopt);
    EXPECT_EQ(TextOf(engine.QueryValue("SELECT NULL::VARIANT").get()), std::nullopt);
}

TEST(Texts, AreMissingForValuesThatDuckDBCannotFormat) {
    constexpr int64_t kSmallest = std::numeric_limits<int64_t>::min();
    EXPECT_EQ(TextOf(ValueHolder(duckdb_create_timestamp({kSmallest})).get()), std::nullopt);
    EXPECT_EQ(TextOf(ValueHolder(duckdb_create_timestamp_s({-(kSmallest + 2)})).get()), std::nullopt);
    EXPECT_EQ(TextOf(ValueHolder(duckdb_create_timestamp_ms({-(kSmallest + 2)})).get()), std::nullopt);
    EXPECT_EQ(TextOf(ValueHolder(duckdb_create_time({-1})).get()), std::nullopt);
    EXPECT_EQ(TextOf(ValueHolder(duckdb_create_time_ns({-(kSmallest + 1)})).get()), std::nullopt);
}

TEST(Texts, LeaveTheValueUnchanged) {
    TestEngine engine;
    ValueHolder value = engine.QueryValue("SELECT 1.5::DECIMAL(4,2)");
    EXPECT_EQ(TextOf(value.get()), "1.50");
    EXPECT_EQ(TypeTextOf(value.get()), "DECIMAL(4,2)");
}

TEST(Variants, EachKindHasItsCodeAndItsChildTheTypeAndTextOfTheValueInside) {
    TestEngine engine;
    const auto& expressions = get_VariantExpressions();
    for (std::size_t i = 0; i < expressions.size(); ++i) {
        SCOPED_TRACE(expressions[i]);
        const auto kind = static_cast<uint32_t>(i + 1);
        ValueHolder value = engine.QueryValue("SELECT " + expressions[i]);
        EXPECT_EQ(duckdb_value_variant_type(value.get()), kind);
        ValueHolder child(duckdb_value_variant_child(value.get()));
        ASSERT_TRUE(child);
        EXPECT_EQ(TextOf(child.get()), engine.QueryText("SELECT CAST(" + expressions[i] + " AS VARCHAR)"));
        const std::string name =
            engine.QueryText("SELECT variant_typeof(" + expressions[i] + ")").value_or("");
        EXPECT_EQ(name.substr(0, name.find('(')), get_VariantKindNames()[kind]);
    }
    EXPECT_EQ(expressions.size() + 1, get_VariantKindNames().size());
}

TEST(Variants, ChildrenHaveTheirOwnTypes) {
    TestEngine engine;
    const std::pair<const char*, const char*> samples[] = {
        {"{'a': 1, 'b': [2, 3]}::VARIANT", "STRUCT(a INTEGER, b INTEGER[])"},
        {"12.50::DECIMAL(4,2)::VARIANT", "DECIMAL(4,2)"},
        {"[1::VARIANT, 'x'::VARIANT]::VARIANT", "VARIANT[]"},
        {"(-5)::TINYINT::VARIANT", "TINYINT"},
        {"'2024-01-31 12:34:56.789'::TIMESTAMP_MS::VARIANT", "TIMESTAMP_MS"},
    };
    for (const auto& [expression, type] : samples) {
        ValueHolder value = engine.QueryValue(std::string("SELECT ") + expression);
        EXPECT_EQ(TypeTextOf(ValueHolder(duckdb_value_variant_child(value.get())).get()), type) << expression;
    }
}

TEST(Variants, ANullInsideIsOfKindZero) {
    TestEngine engine;
    ValueHolder list = engine.QueryValue("SELECT [NULL::VARIANT, 1::VARIANT]::VARIANT");
    ValueHolder child(duckdb_value_variant_child(list.get()));
    ASSERT_EQ(duckdb_get_list_size(child.get()), 2U);
    ValueHolder null(duckdb_get_list_child(child.get(), 0));
    if (duckdb_is_null_value(null.get())) {
        EXPECT_EQ(duckdb_value_variant_type(null.get()), UINT32_MAX);
    } else {
        EXPECT_EQ(duckdb_value_variant_type(null.get()), 0U);
    }
    ValueHolder number(duckdb_get_list_child(child.get(), 1));
    EXPECT_EQ(duckdb_value_variant_type(number.get()), 5U);
}

TEST(Variants, OtherValuesAndNullsHaveNoKindAndNoChild) {
    TestEngine engine;
    for (const char* expression : {"NULL::VARIANT", "1", "'x'", "[1]", "{'a': 1}", "NULL"}) {
        ValueHolder value = engine.QueryValue(std::string("SELECT ") + expression);
        EXPECT_EQ(duckdb_value_variant_type(value.get()), UINT32_MAX) << expression;
        EXPECT_FALSE(ValueHolder(duckdb_value_variant_child(value.get()))) << expression;
    }
}

}  // namespace
}  // namespace mduckdb
