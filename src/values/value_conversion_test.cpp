#include "values/value_conversion.h"

#include <gtest/gtest.h>

#include "base/holders.h"
#include "support/sample_values.h"
#include "support/test_engine.h"
#include "support/value_description.h"

namespace mduckdb {
namespace {

class ConvertDuckDBValueTest : public testing::Test {
  protected:
    std::string Convert(const std::string& expression) {
        const ValueHolder value = engine_.QueryValue("SELECT " + expression);
        return Describe(ConvertDuckDBValue(value.get(), nullptr).get());
    }

    TestEngine engine_;
};

TEST_F(ConvertDuckDBValueTest, TurnsANullHandleAndEveryNULLIntoANullBoolean) {
    EXPECT_EQ(Describe(ConvertDuckDBValue(nullptr, nullptr).get()), "Boolean NULL?");
    EXPECT_EQ(Describe(ConvertDuckDBValue(ValueHolder(duckdb_create_null_value()).get(), nullptr).get()),
              "Boolean NULL?");
    for (const char* type : {"INTEGER", "VARCHAR", "BLOB", "DATE", "INTEGER[]", "DECIMAL(18,3)", "VARIANT"}) {
        EXPECT_EQ(Convert(std::string("NULL::") + type), "Boolean NULL?") << type;
    }
}

TEST_F(ConvertDuckDBValueTest, ReturnsNumbersInTheHostKindOfTheirWidth) {
    EXPECT_EQ(Convert("true"), "Boolean true");
    EXPECT_EQ(Convert("false"), "Boolean false");
    EXPECT_EQ(Convert("(-5)::TINYINT"), "Short -5");
    EXPECT_EQ(Convert("(-32768)::SMALLINT"), "Short -32768");
    EXPECT_EQ(Convert("(-2147483648)::INTEGER"), "Long -2147483648");
    EXPECT_EQ(Convert("9223372036854775807::BIGINT"), "LLong 9223372036854775807");
    EXPECT_EQ(Convert("255::UTINYINT"), "Byte 255");
    EXPECT_EQ(Convert("65535::USMALLINT"), "UShort 65535");
    EXPECT_EQ(Convert("4294967295::UINTEGER"), "ULong 4294967295");
    EXPECT_EQ(Convert("18446744073709551615::UBIGINT"), "ULLong 18446744073709551615");
    EXPECT_EQ(Convert("1.5::FLOAT"), "Float 0x1.8p+0");
    EXPECT_EQ(Convert("0.1::DOUBLE"), "Double 0x1.999999999999ap-4");
    EXPECT_EQ(Convert("'-inf'::DOUBLE"), "Double -inf");
}

TEST_F(ConvertDuckDBValueTest, TurnsADECIMALIntoADouble) {
    EXPECT_EQ(Convert("1.5::DECIMAL(18,3)"), "Double 0x1.8p+0");
    EXPECT_EQ(Convert("(-0.5)::DECIMAL(4,1)"), "Double -0x1p-1");
}

TEST_F(ConvertDuckDBValueTest, ReturnsTheBytesOfABLOB) {
    EXPECT_EQ(Convert("'\\x00\\xFF'::BLOB"), "FixedBinary 00ff of 2?");
    EXPECT_EQ(Convert("''::BLOB"), "FixedBinary  of 0?");
}

TEST_F(ConvertDuckDBValueTest, ReturnsDatesTimesAndEverythingElseAsDuckDBsText) {
    EXPECT_EQ(Convert("DATE '2024-01-31'"), "String 2024-01-31");
    EXPECT_EQ(Convert("[1, 2, 3]"), "String [1, 2, 3]");
    EXPECT_EQ(Convert("'24:00:00'::TIME"), "String 24:00:00");
    EXPECT_EQ(Convert("170141183460469231731687303715884105727::HUGEINT"),
              "String 170141183460469231731687303715884105727");
    EXPECT_EQ(Convert("'b c'::ENUM('a', 'b c')"), "String b c");
    EXPECT_EQ(Convert("''"), "String ");
}

TEST_F(ConvertDuckDBValueTest, ReturnsAVARIANTOfUnknownKindAsText) {
    EXPECT_EQ(Convert("{'a': 1}::VARIANT"), "String {'a': 1}");
}

TEST_F(ConvertDuckDBValueTest, UnwrapsAVARIANTOfKnownKind) {
    const ValueHolder value = engine_.QueryValue("SELECT 70000::INTEGER::VARIANT");
    const uint32_t kind = duckdb_value_variant_type(value.get());
    EXPECT_EQ(Describe(ConvertDuckDBValue(value.get(), &kind).get()), "Long 70000");
}

TEST_F(ConvertDuckDBValueTest, HandsOverOneReference) {
    const ValueHolder value = engine_.QueryValue("SELECT 1");
    EXPECT_EQ(ConvertDuckDBValue(value.get(), nullptr)->get_RefsCount(), 1U);
}

TEST_F(ConvertDuckDBValueTest, ReturnsTheEmptyTextForANumberThatItsTypeDoesNotAllow) {
    const auto convert = [](duckdb_value value) {
        return Describe(ConvertDuckDBValue(ValueHolder(value).get(), nullptr).get());
    };
    EXPECT_EQ(convert(duckdb_create_time({-1})), "String ");
    EXPECT_EQ(convert(duckdb_create_time_ns({INT64_MAX})), "String ");
    EXPECT_EQ(convert(duckdb_create_time_tz_value(duckdb_time_tz{UINT64_MAX})), "String ");
    EXPECT_EQ(convert(duckdb_create_decimal({4, 1, {10000, 0}})), "String ");
}

TEST_F(ConvertDuckDBValueTest, ReturnsTheEmptyTextForAListThatHoldsSuchANumber) {
    const LogicalTypeHolder time(duckdb_create_logical_type(DUCKDB_TYPE_TIME));
    const ValueHolder element(duckdb_create_time({INT64_MAX}));
    duckdb_value elements[] = {element.get()};
    const ValueHolder list(duckdb_create_list_value(time.get(), elements, 1));
    ASSERT_TRUE(list);
    EXPECT_EQ(Describe(ConvertDuckDBValue(list.get(), nullptr).get()), "String ");
}

}  // namespace
}  // namespace mduckdb
