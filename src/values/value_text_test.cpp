#include "values/value_text.h"

#include <gtest/gtest.h>

#include "base/holders.h"
#include "base/text.h"

namespace mduckdb {
namespace {

TEST(DuckDBValueToText, IsEmptyForANullHandleAndForNULL) {
    EXPECT_EQ(DuckDBValueToText(nullptr), "");
    EXPECT_EQ(DuckDBValueToText(ValueHolder(duckdb_create_null_value()).get()), "");
}

TEST(DuckDBValueToText, ReturnsTheTextThatDuckDBShows) {
    EXPECT_EQ(DuckDBValueToText(ValueHolder(duckdb_create_date({19753})).get()), "2024-01-31");
    EXPECT_EQ(DuckDBValueToText(ValueHolder(duckdb_create_int64(-5)).get()), "-5");
}

TEST(DuckDBValueToText, KeepsNULCharacters) {
    const std::string text("a\0b", 3);
    const ValueHolder value(duckdb_create_varchar_length(text.data(), text.size()));
    EXPECT_EQ(DuckDBValueToText(value.get()), text);
    EXPECT_EQ(MakeTextOfValue(value.get())->get_Text().get_Length(), 3U);
}

TEST(DuckDBValueToText, IsEmptyForNumbersThatTheirTypeDoesNotAllow) {
    EXPECT_EQ(DuckDBValueToText(ValueHolder(duckdb_create_time({-1})).get()), "");
    EXPECT_EQ(DuckDBValueToText(ValueHolder(duckdb_create_time({INT64_MAX})).get()), "");
    EXPECT_EQ(DuckDBValueToText(ValueHolder(duckdb_create_time_ns({INT64_MAX})).get()), "");
    EXPECT_EQ(DuckDBValueToText(ValueHolder(duckdb_create_time({86'400'000'000})).get()), "24:00:00");
}

TEST(DuckDBValueToText, IsEmptyWhenDuckDBRefusesTheCast) {
    EXPECT_EQ(DuckDBValueToText(ValueHolder(duckdb_create_timestamp_s({INT64_MAX - 1})).get()), "");
}

TEST(MakeStringValue, CreatesATextThatMayNotBeNull) {
    const auto value = MakeStringValue("h\xC3\xA9llo \xF0\x9F\xA6\x86");
    EXPECT_EQ(value->get_TypeCode(), static_cast<uint32_t>(nbx::ValueType::String));
    EXPECT_FALSE(value->get_IsNullable());
    EXPECT_EQ(value->get_Text(), nbx::String(u"h\u00e9llo \U0001F986", 8));
}

TEST(MakeStringValue, ReplacesInvalidUTF8WithTheReplacementCharacter) {
    EXPECT_EQ(MakeStringValue("a\xFF")->get_Text(), nbx::String(u"a\uFFFD", 2));
}

}  // namespace
}  // namespace mduckdb
