#include "values/variant.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "support/sample_values.h"
#include "support/test_engine.h"
#include "support/value_description.h"

namespace mduckdb {
namespace {

std::string Envelope(const std::string& kind, const std::string& text) {
    return R"(JSON {"duckdb_variant":true,"variant_type":")" + kind + R"(","value":")" + text + "\"}";
}

class ConvertVariantTest : public testing::Test {
  protected:
    std::string Convert(const std::string& expression) {
        const ValueHolder value = engine_.QueryValue("SELECT (" + expression + ")::VARIANT");
        return Describe(ConvertVariant(value.get()).get());
    }

    TestEngine engine_;
};

TEST_F(ConvertVariantTest, TurnsNULLIntoANullBoolean) {
    EXPECT_EQ(Convert("NULL"), "Boolean NULL?");
    EXPECT_EQ(Describe(ConvertVariant(nullptr).get()), "Boolean NULL?");
    EXPECT_EQ(Describe(ConvertVariantValue(nullptr, 5).get()), "Boolean NULL?");
    const ValueHolder null(duckdb_create_null_value());
    EXPECT_EQ(Describe(ConvertVariantValue(null.get(), 1).get()), "Boolean NULL?");
    const ValueHolder number(duckdb_create_int32(1));
    EXPECT_EQ(Describe(ConvertVariantValue(number.get(), 0).get()), "Boolean NULL?");
}

TEST_F(ConvertVariantTest, RecognisesBooleansByTheirKindAlone) {
    EXPECT_EQ(Convert("true"), "Boolean true");
    EXPECT_EQ(Convert("false"), "Boolean false");
    const ValueHolder other(duckdb_create_varchar("no boolean"));
    EXPECT_EQ(Describe(ConvertVariantValue(other.get(), 1).get()), "Boolean true");
    EXPECT_EQ(Describe(ConvertVariantValue(other.get(), 2).get()), "Boolean false");
}

TEST_F(ConvertVariantTest, PutsAnINT8IntoAnEnvelope) {
    EXPECT_EQ(Convert("(-5)::TINYINT"), Envelope("INT8", "-5"));
    EXPECT_EQ(Convert("127::TINYINT"), Envelope("INT8", "127"));
    EXPECT_EQ(Convert("(-128)::TINYINT"), Envelope("INT8", "-128"));
}

TEST_F(ConvertVariantTest, ReturnsNumbersThatTheHostHasAsNumbers) {
    EXPECT_EQ(Convert("(-300)::SMALLINT"), "Short -300");
    EXPECT_EQ(Convert("70000::INTEGER"), "Long 70000");
    EXPECT_EQ(Convert("(-9223372036854775808)::BIGINT"), "LLong -9223372036854775808");
    EXPECT_EQ(Convert("200::UTINYINT"), "Byte 200");
    EXPECT_EQ(Convert("60000::USMALLINT"), "UShort 60000");
    EXPECT_EQ(Convert("4000000000::UINTEGER"), "ULong 4000000000");
    EXPECT_EQ(Convert("18446744073709551615::UBIGINT"), "ULLong 18446744073709551615");
    EXPECT_EQ(Convert("1.5::FLOAT"), "Float 0x1.8p+0");
    EXPECT_EQ(Convert("0.1::DOUBLE"), "Double 0x1.999999999999ap-4");
}

TEST_F(ConvertVariantTest, ReturnsTextsAndBytesUnchanged) {
    EXPECT_EQ(Convert("'h\u00e9'"), "String h\u00e9");
    EXPECT_EQ(Convert("'\\xAB\\x00'::BLOB"), "FixedBinary ab00 of 2?");
}

TEST_F(ConvertVariantTest, TurnsADATEIntoADate) {
    EXPECT_EQ(Convert("DATE '2024-01-31'"), "Date 2024-01-31?");
}

TEST_F(ConvertVariantTest, PutsAnInfiniteDATEIntoAnEnvelope) {
    EXPECT_EQ(Convert("'infinity'::DATE"), Envelope("DATE", "infinity"));
    EXPECT_EQ(Convert("'-infinity'::DATE"), Envelope("DATE", "-infinity"));
}

TEST_F(ConvertVariantTest, TurnsOnlyATIMESTAMPInMillisecondsIntoADateTime) {
    EXPECT_EQ(Convert("'2024-01-31 12:34:56.789'::TIMESTAMP_MS"), "DateTime 2024-01-31 12:34:56.789");
    EXPECT_EQ(Convert("'1969-12-31 23:59:59.999'::TIMESTAMP_MS"), "DateTime 1969-12-31 23:59:59.999");
    EXPECT_EQ(Convert("'2024-01-31 12:34:56.789012'::TIMESTAMP"),
              Envelope("TIMESTAMP_MICROS", "2024-01-31 12:34:56.789012"));
}

TEST_F(ConvertVariantTest, PutsAnInfiniteTIMESTAMPInMillisecondsIntoAnEnvelope) {
    EXPECT_EQ(Convert("'infinity'::TIMESTAMP_MS"), Envelope("TIMESTAMP_MILIS", "infinity"));
    EXPECT_EQ(Convert("'-infinity'::TIMESTAMP_MS"), Envelope("TIMESTAMP_MILIS", "-infinity"));
}

TEST_F(ConvertVariantTest, SurvivesATIMESTAMPInMillisecondsThatHasNoMicroseconds) {
    for (const int64_t millis : {INT64_MIN, INT64_MAX - 1, INT64_MAX / 1000 + 1}) {
        const ValueHolder value(duckdb_create_timestamp_ms({millis}));
        const std::string text = Describe(ConvertVariantValue(value.get(), 23).get());
        EXPECT_EQ(text.rfind(R"(JSON {"duckdb_variant":true,"variant_type":"TIMESTAMP_MILIS")", 0), 0U)
            << text;
    }
}

TEST_F(ConvertVariantTest, PutsEveryOtherKindIntoAnEnvelopeWithTheTextOfDuckDB) {
    EXPECT_EQ(Convert("(-5)::HUGEINT"), Envelope("INT128", "-5"));
    EXPECT_EQ(Convert("5::UHUGEINT"), Envelope("UINT128", "5"));
    EXPECT_EQ(Convert("12.50::DECIMAL(4,2)"), Envelope("DECIMAL", "12.50"));
    EXPECT_EQ(Convert("'a1b2c3d4-0000-4000-8000-00000000ffff'::UUID"),
              Envelope("UUID", "a1b2c3d4-0000-4000-8000-00000000ffff"));
    EXPECT_EQ(Convert("'12:34:56.789'::TIME"), Envelope("TIME_MICROS", "12:34:56.789"));
    EXPECT_EQ(Convert("'12:34:56.789012345'::TIME_NS"), Envelope("TIME_NANOS", "12:34:56.789012345"));
    EXPECT_EQ(Convert("'2024-01-31 12:34:56'::TIMESTAMP_S"),
              Envelope("TIMESTAMP_SEC", "2024-01-31 12:34:56"));
    EXPECT_EQ(Convert("'2024-01-31 12:34:56.789012345'::TIMESTAMP_NS"),
              Envelope("TIMESTAMP_NANOS", "2024-01-31 12:34:56.789012345"));
    EXPECT_EQ(Convert("'12:34:56+02'::TIMETZ"), Envelope("TIME_MICROS_TZ", "12:34:56+02"));
    EXPECT_EQ(Convert("'2024-01-31 12:34:56+00'::TIMESTAMPTZ"),
              Envelope("TIMESTAMP_MICROS_TZ", "2024-01-31 12:34:56+00"));
    EXPECT_EQ(Convert("INTERVAL 1 YEAR"), Envelope("INTERVAL", "1 year"));
    EXPECT_EQ(Convert("{'a': 1, 'b': [2, 3]}"), Envelope("OBJECT", "{'a': 1, 'b': [2, 3]}"));
    EXPECT_EQ(Convert("[1, 2]"), Envelope("ARRAY", "[1, 2]"));
    EXPECT_EQ(Convert("123::BIGNUM"), Envelope("BIGNUM", "123"));
    EXPECT_EQ(Convert("'0101'::BIT"), Envelope("BITSTRING", "0101"));
    EXPECT_EQ(Convert("'POINT(1 2)'::GEOMETRY"), Envelope("GEOMETRY", "POINT (1 2)"));
}

TEST_F(ConvertVariantTest, PutsUnknownKindsIntoAnEnvelopeWithoutAName) {
    const ValueHolder value(duckdb_create_int32(1));
    EXPECT_EQ(Describe(ConvertVariantValue(value.get(), 34).get()), Envelope("UNKNOWN", "1"));
}

TEST(VariantTypeName, IsTheNameThatDuckDBGivesTheKind) {
    ASSERT_EQ(get_VariantKindNames().size(), kVariantTypeCount);
    for (uint32_t code = 0; code < kVariantTypeCount; ++code) {
        EXPECT_EQ(VariantTypeName(code), get_VariantKindNames()[code]);
    }
}

TEST(VariantTypeName, IsUNKNOWNBeyondTheLastKind) {
    EXPECT_EQ(VariantTypeName(34), "UNKNOWN");
    EXPECT_EQ(VariantTypeName(1000), "UNKNOWN");
    EXPECT_EQ(VariantTypeName(UINT32_MAX), "UNKNOWN");
}

std::string EnvelopeText(std::string_view type_name, std::string_view value_text) {
    const auto value = MakeVariantEnvelope(type_name, value_text);
    EXPECT_EQ(value->get_TypeCode(), static_cast<uint32_t>(nbx::ValueType::JSON));
    EXPECT_FALSE(value->get_IsNullable());
    EXPECT_FALSE(value->get_IsNull());
    EXPECT_EQ(value->get_RefsCount(), 1U);
    return ToUtf8(value->get_Text());
}

TEST(VariantEnvelope, HoldsTheMarkerTheKindAndTheTextInThisOrder) {
    EXPECT_EQ(EnvelopeText("DECIMAL", "12.50"),
              R"({"duckdb_variant":true,"variant_type":"DECIMAL","value":"12.50"})");
}

TEST(VariantEnvelope, HasAnEmptyValueForAnEmptyText) {
    EXPECT_EQ(EnvelopeText("DECIMAL", ""), R"({"duckdb_variant":true,"variant_type":"DECIMAL","value":""})");
}

TEST(VariantEnvelope, EscapesTheNameAndTheText) {
    EXPECT_EQ(EnvelopeText("A\"B", "x\"\\\t\x01\xC3\xA9"),
              R"({"duckdb_variant":true,"variant_type":"A\"B","value":"x\"\\\t\u0001\u00c3\u00a9"})");
}

TEST(VariantEnvelope, CarriesAnArrayAsATextAndNotAsJSON) {
    EXPECT_EQ(EnvelopeText("ARRAY", R"([1, "x"])"),
              R"({"duckdb_variant":true,"variant_type":"ARRAY","value":"[1, \"x\"]"})");
}

}  // namespace
}  // namespace mduckdb
