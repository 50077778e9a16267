#include "values/variant_envelope.h"

#include <gtest/gtest.h>

#include "base/text.h"

namespace mduckdb {
namespace {

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
